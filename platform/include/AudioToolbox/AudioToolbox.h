#ifndef TQPLATFORM_AUDIOTOOLBOX_H
#define TQPLATFORM_AUDIOTOOLBOX_H

/* Everything of the audio API in one include. */

#include <AudioToolbox/AUComponent.h>
#include <AudioToolbox/AUGraph.h>
#include <AudioToolbox/AudioComponent.h>
#include <AudioToolbox/AudioConverter.h>
#include <AudioToolbox/AudioOutputUnit.h>
#include <AudioToolbox/AudioServices.h>
#include <AudioToolbox/AudioSession.h>
#include <AudioToolbox/AudioUnitProperties.h>
#include <CoreAudio/CoreAudioTypes.h>

#endif
