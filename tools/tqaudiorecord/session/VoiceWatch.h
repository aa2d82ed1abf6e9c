#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/Records.h"

namespace tqrecorder {

/// Notices while the recording runs that the microphone has gone or fallen silent, and that it is
/// heard again. [one host thread at a time]
class VoiceWatch {
  public:
    /// `isToDuck` where something is ducked while it is loud.
    explicit VoiceWatch(bool isToDuck) : isToDuck_(isToDuck) {}

    /// Gives a line for the user where that has just become clear; empty else. Silence is told
    /// once. That there was none at the start is told elsewhere.
    [[nodiscard]] std::string add(const HeardBlock& block);

  private:
    [[nodiscard]] std::string addAway(std::uint64_t microseconds);
    [[nodiscard]] std::string addSilence(std::uint64_t microseconds);

    bool isToDuck_;
    bool wasThere_ = false;                     ///< at any time
    bool isAway_ = false;                       ///< the user knows
    bool isMuted_ = false;                      ///< the same
    bool isSilenceTold_ = false;                ///< at any time
    bool hasSound_ = false;                     ///< the same
    std::optional<std::uint64_t> awaySince_;    ///< nothing while it is there
    std::optional<std::uint64_t> silentSince_;  ///< nothing while it is heard
};

}  // namespace tqrecorder
