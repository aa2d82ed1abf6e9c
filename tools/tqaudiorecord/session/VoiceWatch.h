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
    /// `isToDuck` where something is ducked while it is loud. `isThere` at the start; that there
    /// was none is told elsewhere.
    VoiceWatch(bool isToDuck, bool isThere)
        : isToDuck_(isToDuck), wasThere_(isThere), isAway_(!isThere) {}

    /// Gives a line for the user where that has just become clear; empty else. Silence is told
    /// once.
    [[nodiscard]] std::string add(const HeardBlock& block);

  private:
    [[nodiscard]] std::string addAway(std::uint64_t microseconds);
    [[nodiscard]] std::string addSilence(std::uint64_t microseconds);

    bool isToDuck_;
    bool wasThere_;                             ///< at any time
    bool isAway_;                               ///< the user knows
    bool isMuted_ = false;                      ///< the same
    bool isSilenceTold_ = false;                ///< at any time
    bool hasSound_ = false;                     ///< the same
    std::optional<std::uint64_t> awaySince_;    ///< nothing while it is there
    std::optional<std::uint64_t> silentSince_;  ///< nothing while it is heard
};

}  // namespace tqrecorder
