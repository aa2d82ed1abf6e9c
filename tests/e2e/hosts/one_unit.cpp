#include "Host.h"

// The ordinary road: made, set up, started, stopped, gone.

void runHost(HostDevice& device) {
    Tone tone;
    AudioUnit unit = newOutputUnit();
    setCallback(unit, tone.callback());
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    device.pump(40);
    check(AudioOutputUnitStop(unit));
    check(AudioUnitUninitialize(unit));
    check(AudioComponentInstanceDispose(unit));
}
