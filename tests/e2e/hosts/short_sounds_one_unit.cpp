#include "Host.h"

// 50 sounds of 20 ms through one unit that starts and stops, beside a unit that plays on.

void runHost(HostDevice& device) {
    Tone music(7);
    AudioUnit player = newOutputUnit();
    setCallback(player, music.callback());
    check(AudioUnitInitialize(player));
    check(AudioOutputUnitStart(player));
    Tone tone;
    AudioUnit unit = newOutputUnit();
    setCallback(unit, tone.callback());
    check(AudioUnitInitialize(unit));
    for (int sound = 0; sound < 50; ++sound) {
        check(AudioOutputUnitStart(unit));
        device.pump(2);
        check(AudioOutputUnitStop(unit));
        device.pump(sound % 3);
    }
    const AudioUnit both[] = {unit, player};
    for (const AudioUnit one : both) {
        check(AudioOutputUnitStop(one));
        device.pump(2);
        check(AudioUnitUninitialize(one));
        check(AudioComponentInstanceDispose(one));
    }
    device.pump(2);
}
