#include "Host.h"

// An old game: eight bits a sample, 128 in the middle, one channel.

namespace {

struct Noise {
    std::uint32_t state = 1;

    static OSStatus render(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                           UInt32 frames, AudioBufferList* data) {
        auto& self = *static_cast<Noise*>(refCon);
        auto* const samples = static_cast<std::uint8_t*>(data->mBuffers[0].mData);
        for (UInt32 i = 0; i < frames; ++i) {
            self.state = self.state * 1664525 + 1013904223;
            samples[i] = static_cast<std::uint8_t>(96 + (self.state >> 26));
        }
        return noErr;
    }
};

}  // namespace

void runHost(HostDevice& device) {
    Noise noise;
    AudioUnit unit = newOutputUnit();
    const AudioStreamBasicDescription format{
        48000, kAudioFormatLinearPCM, kAudioFormatFlagIsPacked, 1, 1, 1, 1, 8, 0};
    check(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                               &format, sizeof format));
    setCallback(unit, {Noise::render, &noise});
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    device.pump(60);
    check(AudioOutputUnitStop(unit));
    device.pump(20);
    check(AudioComponentInstanceDispose(unit));
}
