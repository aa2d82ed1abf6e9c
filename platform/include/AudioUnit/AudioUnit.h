#ifndef TQPLATFORM_AUDIOUNIT_H
#define TQPLATFORM_AUDIOUNIT_H

/* Audio units by the name of the framework they once had for themselves. */

#include <AudioToolbox/AUComponent.h>
#include <AudioToolbox/AudioComponent.h>
#include <AudioToolbox/AudioOutputUnit.h>
#include <AudioToolbox/AudioUnitProperties.h>

#endif
