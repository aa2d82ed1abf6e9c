#include "Host.h"

// Stop, uninitialise, initialise, start: the callback stays the unit's and is not set again.

void runHost(HostDevice& device) {
    Tone tone;
    AudioUnit unit = newOutputUnit();
    setCallback(unit, tone.callback());
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    for (int i = 0; i < 4; ++i) {
        device.pump(30);
        check(AudioOutputUnitStop(unit));
        device.pump(2);
        check(AudioUnitUninitialize(unit));
        check(AudioUnitInitialize(unit));
        check(AudioOutputUnitStart(unit));
    }
    device.pump(40);
    check(AudioOutputUnitStop(unit));
    check(AudioUnitUninitialize(unit));
    check(AudioComponentInstanceDispose(unit));
}
