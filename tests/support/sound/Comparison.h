#pragma once

#include <string>
#include <vector>

#include "support/sound/Sound.h"

namespace tqtest {

/// Where `got` is not `wanted`, in words with numbers of frames, the first ten of them: frames that
/// are missing, repeated, inserted or changed. Empty when both are equal. Both are read as sounds
/// whose frames can be told by their neighbours (markedNoise); of other sounds "changed" may be all
/// that is said.
[[nodiscard]] std::vector<std::string> differences(const Sound& wanted, const Sound& got);

/// The largest difference between a sample of `got` and the same of `wanted` at `level`, from that
/// frame on; 99 when the two are not equally long.
[[nodiscard]] double largestDifference(const Sound& wanted, const Sound& got, double level = 1,
                                       std::size_t from = 0);

/// Where the first frames of `wanted` that are not silent begin in `got`: for two recordings by the
/// wall clock, whose beginnings differ. got.frames() when they are not in it.
[[nodiscard]] std::size_t beginningOf(const Sound& wanted, const Sound& got);

/// `got` from where `wanted` begins on, as long as `wanted`, so that both can be compared.
[[nodiscard]] Sound alignedTo(const Sound& wanted, const Sound& got);

}  // namespace tqtest
