#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/Records.h"

namespace tqrecorder {

/// What became of the microphone, for the summary. [one host thread at a time]
class VoiceFacts {
  public:
    /// `isToDuck` where something is ducked while it is loud.
    explicit VoiceFacts(bool isToDuck) : isToDuck_(isToDuck) {}

    /// The host time from which on it is wanted, in microseconds.
    void begin(std::uint64_t microseconds) { end_ = microseconds; }

    void add(const HeardBlock& block);
    /// Why it was silent, all the time or a part of it, and what of it is in no file; empty when
    /// all is there. `name` is the one that was asked for, empty for the default; `leftOutSeconds`
    /// it heard while nothing played.
    [[nodiscard]] std::string lines(const std::string& name, double leftOutSeconds) const;

  private:
    [[nodiscard]] std::string whySilent() const;

    bool isToDuck_;
    std::optional<std::uint64_t> end_;  ///< host time behind what was added
    std::uint64_t awayFrames_ = 0;
    std::uint64_t lostFrames_ = 0;
    bool wasOpen_ = false;
    bool hasSound_ = false;
};

}  // namespace tqrecorder
