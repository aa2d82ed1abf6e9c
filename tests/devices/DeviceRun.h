#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"
#include "support/servers/Kept.h"
#include "support/sound/Sound.h"

namespace tqtest {

/// What the player (hosts/player.cpp) plays: two seconds, in floats, as the device gets them.
[[nodiscard]] SoundFormat devicePlayerFormat();
[[nodiscard]] const Sound& devicePlayerNoise();

/// How the player is run with those steps on that device.
[[nodiscard]] ProgramSetup devicePlayer(Environment environment, const std::string& device,
                                        std::vector<std::string> steps);

/// Where no sound server and no card can be found.
[[nodiscard]] Environment withoutServers(const TemporaryFolder& folder);

}  // namespace tqtest
