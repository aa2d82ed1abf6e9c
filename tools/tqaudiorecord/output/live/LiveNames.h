#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/Records.h"

namespace tqrecorder {

/// What a live source is called in the sound server.
struct LiveName {
    /// What programs keep in their settings: of the program's and the track's name alone, so that
    /// it is the same at the next launch. "tqaudiorecord.game.music".
    std::string name;
    std::string description;  ///< What people see: "game: music"
};

/// Gives names that no other source of this recorder has.
class LiveNames {
  public:
    /// `unit` is empty for the mix.
    [[nodiscard]] static std::string description(std::string_view program, std::string_view unit);
    [[nodiscard]] LiveName take(std::string_view program, std::string_view unit);
    void giveBack(const LiveName& name) { taken_.erase(name.name); }

  private:
    std::set<std::string> taken_;
};

/// The samples of a block as floats, -1 to 1 for integers. False for a format that nobody plays.
[[nodiscard]] bool toFloats(const BlockFormat& format, std::span<const std::byte> frames,
                            std::vector<float>& samples);

}  // namespace tqrecorder
