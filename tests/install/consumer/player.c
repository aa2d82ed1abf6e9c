#include <AudioToolbox/AudioToolbox.h>
#include <time.h>

/* A square wave of a quarter of full scale. */
static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                       UInt32 bus, UInt32 frames, AudioBufferList* list) {
    (void)refCon, (void)flags, (void)time, (void)bus;
    for (UInt32 buffer = 0; buffer < list->mNumberBuffers; ++buffer) {
        float* samples = list->mBuffers[buffer].mData;
        for (UInt32 i = 0; i < list->mBuffers[buffer].mDataByteSize / sizeof(float); ++i) {
            samples[i] = i / 64 % 2 == 0 ? 0.25F : -0.25F;
        }
    }
    (void)frames;
    return 0;
}

int main(void) {
    const AudioComponentDescription wanted = {kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                              kAudioUnitManufacturer_Apple, 0, 0};
    const AURenderCallbackStruct callback = {render, 0};
    const struct timespec duration = {1, 500000000};
    AudioUnit unit = 0;
    if (AudioComponentInstanceNew(AudioComponentFindNext(0, &wanted), &unit) != 0 ||
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof callback) != 0 ||
        AudioUnitInitialize(unit) != 0 || AudioOutputUnitStart(unit) != 0) {
        return 1;
    }
    nanosleep(&duration, 0);
    return AudioOutputUnitStop(unit) == 0 && AudioComponentInstanceDispose(unit) == 0 ? 0 : 1;
}
