#include "Host.h"

// Three units, of which the third goes: the fourth is given the first one's number. Both stop, and
// then the host goes on playing as if nothing had been.

namespace {

struct Player {
    explicit Player(std::uint32_t seed) : tone(seed), unit(newOutputUnit()) {
        setCallback(unit, tone.callback());
        check(AudioUnitInitialize(unit));
    }
    void start() const { check(AudioOutputUnitStart(unit)); }
    void stop() const { check(AudioOutputUnitStop(unit)); }
    void dispose() const {
        check(AudioUnitUninitialize(unit));
        check(AudioComponentInstanceDispose(unit));
    }

    Tone tone;
    AudioUnit unit;
};

}  // namespace

void runHost(HostDevice& device) {
    Player first(1);
    Player second(2);
    const Player third(3);
    third.dispose();
    Player fourth(4);
    first.start();
    fourth.start();
    device.pump(10);
    first.stop();
    fourth.stop();
    device.pump(2);
    second.start();
    device.pump(20);
    second.stop();
    second.dispose();
    first.start();
    device.pump(20);
    first.stop();
    first.dispose();
    fourth.dispose();
}
