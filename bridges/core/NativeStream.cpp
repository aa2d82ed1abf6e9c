#include "bridges/core/NativeStream.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "bridges/core/GuardScope.h"
#include "bridges/core/StreamLife.h"
#include "bridges/core/WithoutThrowing.h"

namespace tq::bridges {
NativeStream::Use::Use(const void* key) noexcept : stream_(StreamLife::shared().find(key)) {
    if (stream_ == nullptr) {
        return;
    }
    stream_->users_.fetch_add(1);
    // It may have ended between the two, and even stand for another key by now.
    if (StreamLife::shared().find(key) != stream_) {
        stream_->users_.fetch_sub(1);
        stream_ = nullptr;
    }
}

NativeStream::Use::~Use() {
    if (stream_ != nullptr) {
        stream_->users_.fetch_sub(1, std::memory_order_release);
    }
}

void* NativeStream::prepare(const void* samples, std::size_t frames, Memory memory) noexcept {
    void* const asWritten = const_cast<void*>(samples);
    prepared_ = 0;
    isProcessed_ = false;
    if (isInherited_.load(std::memory_order_relaxed)) {
        // Once in a child that plays on: no thread of the native side's has come along with it, so
        // it is one that may wait.
        withoutThrowing([this] {
            const GuardScope guard;
            StreamLife::shared().announce();
            StreamLife::shared().inherit(*this);
        });
    }
    // In one order with the count of users, for whoever takes the unit away.
    BridgeUnit* const unit = unit_.load();
    isServed_ = unit != nullptr || isWaiting_.load(std::memory_order_relaxed);
    if (samples == nullptr || frames == 0) {
        return asWritten;
    }
    const GuardScope guard;
    // One that began without a unit keeps its own gain: the change would be heard.
    tq_source* const own = gain_.load(std::memory_order_acquire);
    tq_source* const source = own != nullptr || unit == nullptr ? own : unit->source();
    const bool isOn = tq_source_gain_is_on(source) != 0;
    if (!isServed_ && !isOn) {
        processed_ = 0;
        return asWritten;
    }
    prepared_ = std::min(frames, mostFrames_);
    const std::size_t count = prepared_ * format_.channels;
    if (source != begun_) {
        if (isOn) {
            tq_source_begin(source);
        }
        begun_ = source;
    }
    if (!isOn || prepared_ < frames) {
        processed_ = 0;
        toUnit_(samples, pre_.data(), count);
        return asWritten;
    }
    process(samples, prepared_, source);
    isProcessed_ = true;
    void* const passed = memory == Memory::kChangeable ? asWritten : passed_.data();
    fromUnit_(post_.data(), passed, count);
    if (isNarrower_) {
        // Heard is what the program's sample has room for.
        toUnit_(passed, post_.data(), count);
    }
    return passed;
}

void NativeStream::process(const void* samples, std::size_t frames, tq_source* source) noexcept {
    std::byte* const pre = pre_.data();
    std::byte* const post = post_.data();
    if (processed_ != 0) {
        const std::size_t known = std::min(processed_, frames);
        toUnit_(samples, fresh_.data(), frames * format_.channels);
        if (std::memcmp(fresh_.data(), pre, known * unitFrameBytes_) == 0) {
            const std::size_t from = known * unitFrameBytes_;
            std::memcpy(pre + from, fresh_.data() + from, (frames - known) * unitFrameBytes_);
        } else {
            // The program has thought better of it.
            processed_ = 0;
        }
    }
    if (processed_ == 0) {
        toUnit_(samples, pre, frames * format_.channels);
    }
    if (processed_ < frames) {
        const std::size_t from = processed_ * unitFrameBytes_;
        std::memcpy(post + from, pre + from, (frames - processed_) * unitFrameBytes_);
        tq_source_process(source, post + from, static_cast<std::uint32_t>(frames - processed_));
        processed_ = frames;
    }
}

void NativeStream::noteHeard() noexcept {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    heardFrom_.store(std::chrono::nanoseconds(now).count() + ahead_.load(std::memory_order_relaxed),
                     std::memory_order_relaxed);
}

void NativeStream::accepted(std::size_t frames, std::size_t late) noexcept {
    if (frames == 0) {
        return;
    }
    const GuardScope guard;
    const std::size_t kept = std::min(frames, prepared_);
    if (!isServed_) {
        unserved_.fetch_add(frames, std::memory_order_relaxed);
    } else if (kept != 0) {
        const std::size_t gone = std::min(late, kept);
        const std::size_t from = gone * unitFrameBytes_;
        if (const FifoEnd end(*this); end) {
            const Start start = start_.load(std::memory_order_relaxed);
            if (start == Start::kToCome || (start == Start::kExpected && !isOverdue_.load())) {
                unstarted_.fetch_add(kept - gone, std::memory_order_relaxed);
            } else if (fifo_->available() == 0) {
                noteHeard();
            }
            (void)fifo_->write(pre_.data() + from, isProcessed_ ? post_.data() + from : nullptr,
                               kept - gone);
        } else {
            // Thrown away this moment, by another thread.
            unserved_.fetch_add(kept - gone, std::memory_order_relaxed);
        }
        // Longer than the FIFO is: nothing of the rest would find room.
        unserved_.fetch_add(frames - kept, std::memory_order_relaxed);
    }
    if (isProcessed_) {
        const std::size_t next = kept * unitFrameBytes_;
        processed_ -= kept;
        std::memmove(pre_.data(), pre_.data() + next, processed_ * unitFrameBytes_);
        std::memmove(post_.data(), post_.data() + next, processed_ * unitFrameBytes_);
    }
    prepared_ = 0;
    if (frames > largestPiece_.load(std::memory_order_relaxed)) {
        largestPiece_.store(frames, std::memory_order_relaxed);
    }
    if (!hasSound_.load(std::memory_order_relaxed)) {
        hasSound_.store(true, std::memory_order_release);
        StreamLife::shared().wake();
    } else if (isIdle_.load(std::memory_order_relaxed)) {
        isIdle_.store(false, std::memory_order_relaxed);
        StreamLife::shared().wake();
    }
}

std::size_t NativeStream::takenBack(std::size_t frames) noexcept {
    const GuardScope guard;
    const FifoEnd end(*this);
    const std::size_t taken = end ? fifo_->takeBack(frames) : 0;
    std::size_t waiting = unstarted();
    while (!unstarted_.compare_exchange_weak(waiting, waiting - std::min(waiting, taken),
                                             std::memory_order_relaxed)) {
    }
    return taken;
}

void NativeStream::skipped(std::size_t frames) noexcept {
    // All samples of units are silent at zero.
    static constexpr std::array<std::byte, 4096> kSilence{};
    const GuardScope guard;
    const std::size_t most = kSilence.size() / unitFrameBytes_;
    const FifoEnd end(*this);
    if (end && fifo_->available() == 0) {
        noteHeard();
    }
    for (std::size_t left = end ? std::min(frames, mostFrames_) : 0; left != 0;) {
        const std::size_t count = std::min(left, most);
        (void)fifo_->write(kSilence.data(), nullptr, count);
        left -= count;
    }
}

std::size_t NativeStream::behind() const noexcept {
    const std::size_t block = block_.load(std::memory_order_relaxed);
    return pacer_->margin(block, 0) + 2 * block;
}

void NativeStream::cutShort() noexcept {
    const GuardScope guard;
    const std::size_t most = behind();
    const FifoEnd end(*this);
    if (const std::size_t left = fifo_->available(); end && left > most) {
        (void)fifo_->takeBack(left - most);
    }
}

void NativeStream::frozen(bool isFrozen) noexcept {
    if (isFrozen_.load(std::memory_order_relaxed) && !isFrozen) {
        noteHeard();
    }
    if (isFrozen_.exchange(isFrozen, std::memory_order_relaxed) && !isFrozen) {
        // Its unit may still have to be started.
        StreamLife::shared().wake();
    }
}

void NativeStream::started() noexcept {
    if (const std::size_t waiting = unstarted(); waiting != 0 && waiting >= this->waiting()) {
        noteHeard();
    }
    if (unstarted_.exchange(0, std::memory_order_acq_rel) != 0) {
        // Its unit may still have to be started.
        StreamLife::shared().wake();
    }
    isOverdue_.store(false, std::memory_order_relaxed);
}

void NativeStream::flushed() noexcept {
    const GuardScope guard;
    (void)fifo_->flush();
    started();
    flushes_.fetch_add(1, std::memory_order_release);
}

void NativeStream::flushed(std::size_t unheard) noexcept {
    {
        const GuardScope guard;
        // Where a writer is at work, what it writes belongs to what is thrown away.
        const FifoEnd end(*this);
        if (end && fifo_->available() > unheard) {
            (void)fifo_->takeBack(unheard);
            started();
            return;
        }
    }
    flushed();
}

// ---- the device's side --------------------------------------------------------------------------

/// How many of the frames that wait may be played. An expected start that nobody tells of is made
/// here.
std::size_t NativeStream::startedOf(std::size_t available, std::size_t block) noexcept {
    const std::size_t unstarted = this->unstarted();
    if (unstarted == 0) {
        awaited_ = 0;
        return available;
    }
    if (start_.load(std::memory_order_relaxed) != Start::kToCome) {
        constexpr double kLongestStart = 2.0;  // sinks that sleep take more than a second
        awaited_ += isFrozen_.load(std::memory_order_relaxed) ? 0 : block;
        const bool isClosed = state_.load(std::memory_order_relaxed) == State::kClosed;
        if (isClosed || static_cast<double>(awaited_) >= kLongestStart * format_.sampleRate) {
            isOverdue_.store(true);
            heardFrom_.store(0, std::memory_order_relaxed);
            unstarted_.store(0, std::memory_order_release);
            return available;
        }
    }
    return available - std::min(available, unstarted);
}

/// By how many frames a block of that time is later than what waits is heard.
std::ptrdiff_t NativeStream::lateAt(std::uint64_t hostTime) const noexcept {
    // Beyond them one of the clocks is none.
    constexpr double kEarliest = -1;
    constexpr double kLatest = 60;
    const std::int64_t from = heardFrom_.load(std::memory_order_relaxed);
    const double seconds = static_cast<double>(static_cast<std::int64_t>(hostTime) - from) / 1e9;
    const bool isKnown = from != 0 && seconds > kEarliest && seconds < kLatest;
    return isKnown ? static_cast<std::ptrdiff_t>(seconds * format_.sampleRate) : 0;
}

void NativeStream::feed(void* samples, std::size_t frames, std::uint64_t hostTime) noexcept {
    auto* const pre = static_cast<std::byte*>(samples);
    PacerInput input;
    // Events before the FIFO: what was written before an event is seen with it.
    input.isClosed = state_.load(std::memory_order_acquire) == State::kClosed;
    input.flushes = flushes_.load(std::memory_order_acquire);
    input.isFrozen = isFrozen_.load(std::memory_order_relaxed);
    input.largestPiece = largestPiece_.load(std::memory_order_relaxed);
    input.frames = frames;
    // Before the FIFO: where anything waits in it, no note this old is of sound still to be
    // written.
    const std::int64_t heardFrom = heardFrom_.load(std::memory_order_acquire);
    input.available = startedOf(fifo_->available(), frames);
    input.silent = std::min(fifo_->silentFrames(), input.available);
    playedFrom_ = input.available != 0 ? heardFrom : playedFrom_;
    const bool wasPlaying = pacer_->isPlaying();
    input.late = wasPlaying ? 0 : lateAt(hostTime);
    block_.store(frames, std::memory_order_relaxed);
    const PacerBlock block = pacer_->next(input);
    if ((wasPlaying || block.take != 0) && !pacer_->isPlaying() && !input.isFrozen) {
        // It does not count behind the silence; one that was noted since stays.
        std::int64_t played = playedFrom_;
        heardFrom_.compare_exchange_strong(played, 0, std::memory_order_relaxed);
    }
    if (block.cut != 0) {
        (void)fifo_->cutSilence(block.cut);
    }
    const std::size_t most = heard_.size() / unitFrameBytes_;
    const std::size_t wait = std::min(block.wait, most);
    const std::size_t begin = wait * unitFrameBytes_;
    std::memset(pre, 0, begin);
    std::memset(heard_.data(), 0, begin);
    const std::size_t taken =
        fifo_->read(pre + begin, heard_.data() + begin, std::min(block.take, most - wait));
    const std::size_t from = begin + taken * unitFrameBytes_;
    std::memset(pre + from, 0, frames * unitFrameBytes_ - from);
    std::memset(heard_.data() + from, 0, std::min(frames, most) * unitFrameBytes_ - from);
    // The mix and the track are read behind this callback, some of it a block later.
    if (block.isOver && ++blocksBehind_ == kBlocksBehind) {
        isOver_.store(true, std::memory_order_release);
        // The next stream may be waiting for the unit.
        StreamLife::shared().wake();
    }
}

void NativeStream::replaceByHeard(void* samples, std::size_t frames) noexcept {
    std::memcpy(samples, heard_.data(), std::min(frames * unitFrameBytes_, heard_.size()));
}

}  // namespace tq::bridges
