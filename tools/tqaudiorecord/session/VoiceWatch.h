#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/Records.h"

namespace tqrecorder {

/// Notices while the recording runs that the microphone which shall duck cannot. [one host thread
/// at a time]
class VoiceWatch {
  public:
    /// Gives a line for the user where that has just become clear, once of each kind; empty else.
    /// That there was none at the start is told elsewhere.
    [[nodiscard]] std::string add(const HeardBlock& block);

  private:
    [[nodiscard]] std::string addAway(std::uint64_t microseconds);

    std::optional<std::uint64_t> openSince_;  ///< the first time
    std::optional<std::uint64_t> awaySince_;  ///< the last time; nothing while it is there
    bool hasSound_ = false;
    bool isSilenceTold_ = false;
    bool isAwayTold_ = false;
};

}  // namespace tqrecorder
