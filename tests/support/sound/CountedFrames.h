#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/sound/Sound.h"

// Sound of two channels whose frames tell their numbers, so that of a long recording each frame can
// be told to be there once. The numbers survive 16 bits and begin anew after five minutes.

namespace tqtest {

/// The sample of that number, interleaved: 0.25 to 0.75.
[[nodiscard]] float countedSample(std::size_t sample);

/// Frames in a row whose numbers follow one another, that are silent, or that are neither.
struct CountedRun {
    enum class Kind { counted, silent, other };
    Kind kind = Kind::other;
    std::size_t first = 0;  ///< number of the first frame; of a counted run alone
    std::size_t frames = 0;

    [[nodiscard]] std::size_t end() const { return first + frames; }
};

[[nodiscard]] std::vector<CountedRun> countedRuns(const Sound& sound);
/// The same without silence in which no number is missing: the player stood still there.
[[nodiscard]] std::vector<CountedRun> withoutPauses(const std::vector<CountedRun>& runs);
/// For messages: "silent 12, counted 0 to 479, ..."
[[nodiscard]] std::string told(const std::vector<CountedRun>& runs);
/// Frames of the longest run that is counted.
[[nodiscard]] std::size_t longestCount(const Sound& sound);

}  // namespace tqtest
