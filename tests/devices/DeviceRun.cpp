#include "DeviceRun.h"

namespace tqtest {

SoundFormat devicePlayerFormat() {
    return {48000, 2, Encoding::F32};
}

const Sound& devicePlayerNoise() {
    static const Sound noise = markedNoise(devicePlayerFormat(), 96000);
    return noise;
}

ProgramSetup devicePlayer(Environment environment, const std::string& device,
                          std::vector<std::string> steps) {
    environment["TQ_AUDIO_DEVICE"] = device;
    steps.insert(steps.begin(), TQ_DEVICE_PLAYER);
    return {.arguments = std::move(steps), .environment = std::move(environment)};
}

}  // namespace tqtest
