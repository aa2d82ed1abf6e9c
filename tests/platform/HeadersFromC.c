/* A host in C: every call by the types of its header, constants in switches and initialisers. */

#include <AudioToolbox/AudioServices.h>
#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AUComponent.h>
#include <AudioUnit/AudioComponent.h>
#include <AudioUnit/AudioOutputUnit.h>
#include <AudioUnit/AudioUnit.h>
#include <AudioUnit/AudioUnitProperties.h>
#include <CoreServices/CoreServices.h>
#include <MacTypes.h>
#include <TargetConditionals.h>

OSStatus headersUsedFromC(void);

static const AudioComponentDescription wanted = {kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                                 kAudioUnitManufacturer_Apple, 0, 0};
static int finished;

static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                       UInt32 bus, UInt32 frames, AudioBufferList* list) {
    (void)refCon, (void)time, (void)bus, (void)frames, (void)list;
    *flags |= kAudioUnitRenderAction_OutputIsSilence;
    return noErr;
}

static OSStatus unitCalls(void) {
    AudioUnit unit = NULL;
    AURenderCallbackStruct callback = {render, NULL};
    OSStatus status = AudioComponentInstanceNew(AudioComponentFindNext(NULL, &wanted), &unit);
    if (status == noErr) {
        status = AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback,
                                      kAudioUnitScope_Input, 0, &callback, sizeof callback);
    }
    if (status == noErr) {
        status = AudioUnitInitialize(unit);
    }
    if (status == noErr) {
        status = AudioOutputUnitStart(unit);
    }
    if (status == noErr) {
        status = AudioOutputUnitStop(unit);
    }
    AudioComponentInstanceDispose(unit);
    return status;
}

static OSStatus graphCalls(void) {
    AUGraph graph = NULL;
    AUNode node = 0;
    OSStatus status = NewAUGraph(&graph);
    if (status == noErr) {
        status = AUGraphAddNode(graph, &wanted, &node);
    }
    DisposeAUGraph(graph);
    return status;
}

/* What hosts take for granted: the C library, nil, and constants as values of a switch. */
static bool umbrellaCalls(void) {
    AudioUnitParameterEvent event;
    AudioChannelLayout layout;
    char text[8] = "rioc";
    OSErr old = noErr;
    bool fits =
        strchr(text, 'x') == nil && isalpha(text[0]) && fabs(-1.0) > 0.5 && strlen(text) == 4;
    memset(&event, 0, sizeof event);
    event.eventType = kParameterEvent_Ramped;
    event.eventValues.ramp.durationInFrames = 64;
    layout.mChannelLayoutTag = kAudioChannelLayoutTag_AudioUnit_5_1;
    switch (layout.mChannelLayoutTag) {
        case kAudioChannelLayoutTag_Stereo:
        case kAudioChannelLayoutTag_Unknown:
            fits = false;
            break;
        default:
            break;
    }
    return fits && abs(-1) == 1 && old == 0 && TARGET_OS_IPHONE &&
           CFSwapInt32HostToBig(1) == 0x01000000U;
}

OSStatus headersUsedFromC(void) {
    OSStatus status = unitCalls();
    switch (status) {
        case kAudioUnitErr_InvalidProperty:
        case kAudioUnitErr_FormatNotSupported:
            return status;
        default:
            break;
    }
    finished = 1;
    if (!umbrellaCalls()) {
        return kAudio_ParamError;
    }
    return status == noErr ? graphCalls() : status;
}
