#ifndef TQPLATFORM_COREMEDIA_H
#define TQPLATFORM_COREMEDIA_H

/*
 * Media times, and sample buffers: PCM data together with its format and its times, handed from
 * one program part to another by reference. Objects are released with CFRelease. They are
 * allocated and looked up under a lock, which is why all but times is for host threads.
 */

#include <CoreMedia/CMBlockBuffer.h>
#include <CoreMedia/CMFormatDescription.h>
#include <CoreMedia/CMSampleBuffer.h>
#include <CoreMedia/CMTime.h>

#endif
