#include "bridges/core/Pacer.h"

#include <algorithm>
#include <utility>

#include "common/NativeSound.h"

namespace tq::bridges {

namespace {

constexpr double kSilenceToCutIn = 0.2;
constexpr double kWatch = 1.0;
/// Clocks differ by a tenth of this; a lead that grows faster is the program writing further ahead,
/// which the listener hears later too.
constexpr double kFastestDrift = 0.005;

std::size_t less(std::size_t from, std::size_t what) noexcept {
    return from - std::min(from, what);
}

}  // namespace

Pacer::Pacer(double sampleRate) noexcept : sampleRate_(sampleRate) {
}

/// How much later than it is heard sound starts. Blocks are asked for ahead of their time, by two
/// of them where a device is heard.
std::size_t Pacer::shortestWait(std::size_t block) const noexcept {
    return std::max(static_cast<std::size_t>(tqcommon::kNativeSoundLaterSeconds * sampleRate_),
                    4 * block);
}

std::size_t Pacer::margin(std::size_t block, std::size_t largestPiece) const noexcept {
    return std::max(largestPiece + 2 * block, shortestWait(block));
}

void Pacer::start() noexcept {
    isPlaying_ = true;
    silentRun_ = 0;
    watched_ = 0;
    knowsLead_ = false;
}

void Pacer::stop() noexcept {
    isPlaying_ = false;
    isWaiting_ = false;
}

PacerBlock Pacer::next(const PacerInput& input) noexcept {
    if (flushes_ != input.flushes) {
        flushes_ = input.flushes;
        stop();
    }
    if (input.isFrozen) {
        // What a stream holds when it is closed in a pause was never to be heard.
        return {0, 0, 0, input.frames, input.isClosed};
    }
    PacerBlock block;
    if (!isPlaying_) {
        block.wait = prime(input);
    }
    if (!isPlaying_) {
        return {0, 0, 0, input.frames, input.isClosed && input.available == 0};
    }
    block.cut = cutOf(input);
    cutLead(block.cut);
    const std::size_t available = input.available - block.cut;
    block.take = std::min(input.frames - block.wait, available);
    block.silence = input.frames - block.wait - block.take;
    silentRun_ = block.take <= input.silent - block.cut ? silentRun_ + block.take : 0;
    if (block.silence > 0) {
        stop();
    } else {
        watchLead(available - block.take, input);
    }
    block.isOver = input.isClosed && block.take == available;
    return block;
}

/// Starts what is there when it is as late as it has to be; more is not waited for: large pieces
/// come seldom, and a short sound is all there is. Returns the frames of the block before that.
std::size_t Pacer::prime(const PacerInput& input) noexcept {
    if (input.available == 0) {
        isWaiting_ = false;
        return 0;
    }
    if (!std::exchange(isWaiting_, true)) {
        waited_ = input.late;
    }
    const auto block = static_cast<std::ptrdiff_t>(input.frames);
    const std::ptrdiff_t left = static_cast<std::ptrdiff_t>(shortestWait(input.frames)) - waited_;
    if (left <= 0) {
        start();
        return 0;
    }
    if (left < block) {
        start();
        return static_cast<std::size_t>(left);
    }
    waited_ += block;
    return 0;
}

/// How much of the silence in front makes up for a program whose clock is faster.
std::size_t Pacer::cutOf(const PacerInput& input) const noexcept {
    const auto longEnough = static_cast<std::size_t>(kSilenceToCutIn * sampleRate_);
    if (!knowsLead_ || silentRun_ + input.silent < longEnough) {
        return 0;
    }
    const std::size_t wanted = std::max(own_, 2 * input.frames);
    const std::size_t grown = less(std::min({highestLow_, lastLow_, low_}), wanted);
    // Less than two blocks is not worth a cut.
    return grown < 2 * input.frames ? 0 : std::min(grown, input.silent);
}

void Pacer::cutLead(std::size_t frames) noexcept {
    low_ = less(low_, frames);
    lastLow_ = less(lastLow_, frames);
    highestLow_ = less(highestLow_, frames);
}

void Pacer::watchLead(std::size_t lead, const PacerInput& input) noexcept {
    low_ = watched_ == 0 ? lead : std::min(low_, lead);
    watched_ += input.frames;
    const auto second = static_cast<std::size_t>(kWatch * sampleRate_);
    if (watched_ < std::max(second, 2 * input.largestPiece)) {
        return;
    }
    const auto drift = static_cast<std::size_t>(kFastestDrift * static_cast<double>(watched_));
    if (!knowsLead_) {
        own_ = highestLow_ = low_;
    } else if (low_ > highestLow_) {
        // A block more may be chance: where the pieces lie between the blocks.
        own_ += low_ - highestLow_ > drift + input.frames ? low_ - highestLow_ : 0;
        highestLow_ = low_;
    }
    knowsLead_ = true;
    lastLow_ = low_;
    watched_ = 0;
}

}  // namespace tq::bridges
