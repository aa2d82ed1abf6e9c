#include "DeviceRun.h"

#include "support/servers/Recording.h"

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

Environment withoutServers(const TemporaryFolder& folder) {
    Environment environment = privateFolders(folder);
    environment["PULSE_SERVER"] = "unix:" + folder.file("none.sock");
    environment["JACK_NO_START_SERVER"] = "1";
    environment["ALSA_CONFIG_PATH"] = "/dev/null";
    return environment;
}

}  // namespace tqtest
