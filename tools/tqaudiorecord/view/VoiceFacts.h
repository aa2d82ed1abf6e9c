#pragma once

#include <string>

#include "core/Records.h"

namespace tqrecorder {

/// What became of the microphone, for the summary. [one host thread at a time]
class VoiceFacts {
  public:
    void add(const HeardBlock& block);
    /// Why its track is silent, all of it or a part; empty when it is not. `name` is the one that
    /// was asked for, empty for the default.
    [[nodiscard]] std::string line(const std::string& name) const;

  private:
    std::uint64_t frames_ = 0;
    std::uint64_t awayFrames_ = 0;
    bool wasOpen_ = false;
    bool hasSound_ = false;
};

}  // namespace tqrecorder
