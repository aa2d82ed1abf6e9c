/* A C11 host: every call by the types of its header, constants in switches and initialisers. */

#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AUComponent.h>
#include <AudioUnit/AudioComponent.h>
#include <AudioUnit/AudioOutputUnit.h>
#include <AudioUnit/AudioUnit.h>
#include <AudioUnit/AudioUnitProperties.h>

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
    return status == noErr ? graphCalls() : status;
}
