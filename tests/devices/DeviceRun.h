#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/servers/Kept.h"
#include "support/sound/Sound.h"

namespace tqtest {

/// What the player (hosts/player.cpp) plays: two seconds, in floats, as the device gets them.
[[nodiscard]] SoundFormat devicePlayerFormat();
[[nodiscard]] const Sound& devicePlayerNoise();

/// How the player is run with those steps on that device.
[[nodiscard]] ProgramSetup devicePlayer(Environment environment, const std::string& device,
                                        std::vector<std::string> steps);

}  // namespace tqtest
