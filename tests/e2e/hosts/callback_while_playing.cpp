#include "Host.h"

// The render callback is set on a unit that runs already, and replaced while it runs.

void runHost(HostDevice& device) {
    Tone tone;
    Tone other(9);
    AudioUnit unit = newOutputUnit();
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    device.pump(4);
    setCallback(unit, tone.callback());
    device.pump(100);
    setCallback(unit, other.callback());
    device.pump(20);
    check(AudioOutputUnitStop(unit));
    check(AudioUnitUninitialize(unit));
    check(AudioComponentInstanceDispose(unit));
}
