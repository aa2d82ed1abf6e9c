#include <AudioToolbox/AudioServices.h>

#include "Host.h"

// Asks for 44100 Hz and then plays without saying a format, as if it had been given them; asks for
// another rate while it plays.

namespace {

void require(bool holds) {
    check(holds ? OSStatus{noErr} : OSStatus{kAudio_ParamError});
}

void preferRate(Float64 rate) {
    check(AudioSessionSetProperty(kAudioSessionProperty_PreferredHardwareSampleRate, sizeof rate,
                                  &rate));
    Float64 now = 0;
    UInt32 size = sizeof now;
    check(AudioSessionGetProperty(kAudioSessionProperty_CurrentHardwareSampleRate, &size, &now));
    require(now == rate);
}

Float64 rateOf(AudioUnit unit, AudioUnitScope scope) {
    AudioStreamBasicDescription format{};
    UInt32 size = sizeof format;
    check(AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, scope, 0, &format, &size));
    return format.mSampleRate;
}

}  // namespace

void runHost(HostDevice& device) {
    check(AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr));
    preferRate(44100);
    Tone tone;
    const AudioComponentDescription wanted = outputComponent();
    AudioUnit unit = nullptr;
    check(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit));
    require(rateOf(unit, kAudioUnitScope_Input) == 44100);
    setCallback(unit, tone.callback());
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    device.pump(20);
    preferRate(32000);
    device.pump(20);
    require(rateOf(unit, kAudioUnitScope_Output) == 32000);
    check(AudioOutputUnitStop(unit));
    check(AudioComponentInstanceDispose(unit));
}
