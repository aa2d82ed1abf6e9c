#include <Foundation/Foundation.h>

#include "Host.h"

// Two units, one with its callback on the output scope. Routes change and interruptions pass while
// both play.

namespace {

void post(const char* name, NSUserInfo info = {}) {
    NSNotificationCenter::defaultCenter().postNotificationName(name, nullptr, std::move(info));
}

}  // namespace

void runHost(HostDevice& device) {
    Tone loud(1);
    Tone other(2);
    AudioUnit first = newOutputUnit();
    AudioUnit second = newOutputUnit();
    setCallback(first, loud.callback());
    const AURenderCallbackStruct callback = other.callback();
    check(AudioUnitSetProperty(second, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Output,
                               0, &callback, sizeof callback));
    for (AudioUnit unit : {first, second}) {
        check(AudioUnitInitialize(unit));
        check(AudioOutputUnitStart(unit));
    }
    device.pump(10);
    post("AVAudioSessionRouteChangeNotification", {{"AVAudioSessionRouteChangeReasonKey", 1L}});
    device.pump(10);
    post("AVAudioSessionRouteChangeNotification", {{"AVAudioSessionRouteChangeReasonKey", 2L}});
    device.pump(30);
    for (int i = 0; i < 20; ++i) {
        post("AVAudioSessionInterruptionNotification", {{"AVAudioSessionInterruptionTypeKey", 1L}});
        post("AVAudioSessionInterruptionNotification", {{"AVAudioSessionInterruptionTypeKey", 0L}});
        device.pump(2);
    }
    for (AudioUnit unit : {first, second}) {
        check(AudioOutputUnitStop(unit));
        check(AudioUnitUninitialize(unit));
        check(AudioComponentInstanceDispose(unit));
    }
}
