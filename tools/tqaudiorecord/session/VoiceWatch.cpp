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
        return addAway(block.microseconds);
    }
    awaySince_.reset();
    const bool isFirst = !std::exchange(wasThere_, true);
    if (std::exchange(isAway_, false)) {
        return isFirst ? "the microphone is there" : "the microphone is back";
    }
    const bool isHeard = std::any_of(block.samples.begin(), block.samples.end(),
                                     [](float sample) { return sample != 0; });
    if (!isHeard) {
        return addSilence(block.microseconds);
    }
    silentSince_.reset();
    hasSound_ = true;
    return std::exchange(isMuted_, false) ? "the microphone is heard" : "";
}

std::string VoiceWatch::addAway(std::uint64_t microseconds) {
    silentSince_.reset();
    awaySince_ = awaySince_.value_or(microseconds);
    if (microseconds < *awaySince_ + kAwayMicroseconds || std::exchange(isAway_, true)) {
        return {};
    }
    return isToDuck_ ? "the microphone is away; nothing is ducked until it is back"
                     : "the microphone is away; silence is recorded until it is back";
}

std::string VoiceWatch::addSilence(std::uint64_t microseconds) {
    silentSince_ = silentSince_.value_or(microseconds);
    // Once: what lets no noise through is silent between the words, too.
    if (microseconds < *silentSince_ + kSilentMicroseconds || std::exchange(isSilenceTold_, true)) {
        return {};
    }
    isMuted_ = true;
    const std::string since = hasSound_ ? "the microphone has been silent for ten seconds"
                                        : "the microphone has heard nothing at all so far";
    return since + (isToDuck_ ? ", so that nothing is ducked" : "") +
           "; is it muted or switched off?";
}

}  // namespace tqrecorder
