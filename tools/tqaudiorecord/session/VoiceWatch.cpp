#include "session/VoiceWatch.h"

#include <algorithm>
#include <utility>

namespace tqrecorder {
namespace {

/// Real microphones are never wholly silent, but some are for a while before the first word.
constexpr std::uint64_t kSilentMicroseconds = 10'000'000;
/// A server that is there again at once takes less.
constexpr std::uint64_t kAwayMicroseconds = 1'000'000;

}  // namespace

std::string VoiceWatch::add(const HeardBlock& block) {
    if (!block.isOpen) {
        return openSince_ ? addAway(block.microseconds) : std::string{};
    }
    awaySince_.reset();
    openSince_ = openSince_.value_or(block.microseconds);
    hasSound_ = hasSound_ || std::any_of(block.samples.begin(), block.samples.end(),
                                         [](float sample) { return sample != 0; });
    const bool isSilent = !hasSound_ && block.microseconds >= *openSince_ + kSilentMicroseconds;
    if (!isSilent || std::exchange(isSilenceTold_, true)) {
        return {};
    }
    return "the microphone has heard nothing at all so far, so that nothing is ducked; is it muted "
           "or switched off?";
}

std::string VoiceWatch::addAway(std::uint64_t microseconds) {
    awaySince_ = awaySince_.value_or(microseconds);
    const bool isAway = microseconds >= *awaySince_ + kAwayMicroseconds;
    if (!isAway || std::exchange(isAwayTold_, true)) {
        return {};
    }
    return "the microphone is away; nothing is ducked until it is back";
}

}  // namespace tqrecorder
