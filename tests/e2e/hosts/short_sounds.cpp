#include "Host.h"

// 50 sounds of 60 ms, each through a unit made anew, in slices of four sizes, some back to back.

void runHost(HostDevice& device) {
    constexpr UInt32 kSlices[] = {256, 480, 720, 1024};
    constexpr UInt32 kSoundFrames = 2880;
    Tone tone;
    for (int sound = 0; sound < 50; ++sound) {
        const UInt32 slice = kSlices[sound % 4];
        AudioUnit unit = newOutputUnit();
        setCallback(unit, tone.callback());
        check(AudioUnitInitialize(unit));
        check(AudioOutputUnitStart(unit));
        device.pump(static_cast<int>(kSoundFrames / slice), slice);
        check(AudioOutputUnitStop(unit));
        check(AudioUnitUninitialize(unit));
        check(AudioComponentInstanceDispose(unit));
        device.pump(sound % 3, slice);
    }
    device.pump(3, 1024);
}
