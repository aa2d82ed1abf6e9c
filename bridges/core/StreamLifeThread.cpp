#include <TQPlatform/NullDevice.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

#include "bridges/core/GuardScope.h"
#include "bridges/core/StreamLife.h"
#include "common/SignalsBlocked.h"

// The thread that looks after streams, their end with the process, and what a fork leaves of them.

namespace tq::bridges {
namespace {

using Clock = std::chrono::steady_clock;

/// How long a hurried device's thread may be kept from its work by a busy machine.
constexpr std::chrono::duration<double> kStarved{1};
/// In which a stopped unit's last blocks have been delivered: three passes of the device and more.
constexpr double kTailSeconds = 0.05;
constexpr double kLongestHurry = 60;
constexpr std::chrono::milliseconds kReportInterval{250};
/// Between two looks while a stream waits for something that nobody announces.
constexpr std::chrono::milliseconds kShortPause{50};
/// While a stream waits for somebody who listens.
constexpr std::chrono::milliseconds kShortestPause{5};
/// For which it waits, at the longest.
constexpr std::chrono::seconds kLongestKept{1};
/// After which it is said that a stream has nothing to play.
constexpr std::chrono::seconds kIdle{1};
/// That are told of when they are closed: programs may open many only to see what there is.
constexpr int kMostIdle = 8;
/// Looks at a closed stream whose unit does not start before it is given up: a second of them.
constexpr int kMostStarts = 20;

timespec in(std::chrono::milliseconds pause) {
    timespec then{};
    clock_gettime(CLOCK_MONOTONIC, &then);
    then.tv_nsec += pause.count() * 1'000'000L;
    then.tv_sec += then.tv_nsec / 1'000'000'000L;
    then.tv_nsec %= 1'000'000'000L;
    return then;
}

}  // namespace

void StreamLife::startThread() {
    if (hasThread_) {
        return;
    }
    const tqcommon::SignalsBlocked blocked;
    std::thread([this] {
        pthread_setname_np(pthread_self(), "TQAudioBridge");
        run();
    }).detach();
    hasThread_ = true;
}

void StreamLife::run() {
    std::optional<std::chrono::milliseconds> pause{kShortPause};
    while (true) {
        waitForWork(pause);
        const std::scoped_lock lock(lock_);
        // Listeners are told in there. One that dies is to die twice at most, whoever calls it.
        const GuardScope inside;
        look();
        pause = pauseToNextLook();
    }
}

void StreamLife::waitForWork(std::optional<std::chrono::milliseconds> longest) {
    if (longest) {
        const timespec then = in(*longest);
        while (sem_clockwait(&work_, CLOCK_MONOTONIC, &then) != 0 && errno == EINTR) {
        }
    } else {
        while (sem_wait(&work_) != 0 && errno == EINTR) {
        }
    }
}

/// None where every stream is silent: a first frame, the end of a pause and an end wake the thread.
std::optional<std::chrono::milliseconds> StreamLife::pauseToNextLook() const {
    std::optional<std::chrono::milliseconds> pause;
    const auto noLongerThan = [&pause](std::chrono::milliseconds most) {
        pause = pause ? std::min(*pause, most) : most;
    };
    if (isKept_) {
        noLongerThan(kShortestPause);
    }
    for (const NativeStream* const stream : streams_) {
        if (stream->state_ == NativeStream::State::kUnused) {
            continue;
        }
        const BridgeUnit* const unit = stream->unit_.load();
        const bool hasSound = stream->hasSound_.load();
        const bool plays = unit != nullptr && unit->isRunning();
        const bool wantsUnit = stream->isWaiting_.load() && (hasSound || unit != nullptr);
        if (stream->state_ == NativeStream::State::kClosed || wantsUnit ||
            (hasSound && !plays && !stream->isPaused() && !stream->isExcluded_)) {
            noLongerThan(kShortPause);
        }
        if (hasSound && plays) {
            noLongerThan(kReportInterval);
        }
        if (hasSound && stream->isHeldBack() && stream->isFilling_) {
            // The program may be killed in the pause.
            noLongerThan(kIdle);
        }
        if (!hasSound && !stream->fate_ && !stream->isInherited_.load()) {
            noLongerThan(kIdle);
        }
    }
    return pause;
}

void StreamLife::look() {
    isKept_ = false;
    for (NativeStream* const stream : streams_) {
        if (stream->state_ != NativeStream::State::kUnused) {
            lookAt(*stream);
        }
    }
    // Behind all that begin and end.
    for (NativeStream* const stream : streams_) {
        hope(*stream);
    }
}

void StreamLife::lookAt(NativeStream& stream) {
    const bool hasSound = stream.hasSound_.load(std::memory_order_acquire);
    const bool isClosed = stream.state_ == NativeStream::State::kClosed;
    const bool isUnserved = stream.unit_.load() == nullptr && !stream.isWaiting_.load();
    if (stream.isExcluded_ && hasSound && !stream.isOver_) {
        reportUnlessDone(stream, TQ_STREAM_EXCLUDED);
    }
    if (isClosed && (isSilent(stream) || stream.isExcluded_)) {
        stream.isOver_ = true;
    }
    if (isClosed && (stream.isOver_ || !hasSound || isUnserved)) {
        if (!hasSound && !stream.fate_ && !stream.isInherited_ && idleStreams_ < kMostIdle) {
            ++idleStreams_;
            report(stream, TQ_STREAM_NOTHING_WRITTEN, true);
        }
        endStream(stream);
        return;
    }
    if (stream.isExcluded_ && hasSound) {
        return;
    }
    if (stream.unit_.load() == nullptr ? hasSound : stream.isWaiting_.load()) {
        seat(stream);
    }
    if (!hasSound) {
        if (!isClosed && !stream.isInherited_ && Clock::now() - stream.openedAt_ > kIdle) {
            reportUnlessDone(stream, TQ_STREAM_NOTHING_WRITTEN);
        }
        return;
    }
    const bool isWaiting = stream.isWaiting_.load();
    BridgeUnit* const unit = stream.unit_.load();
    if (unit != nullptr && !isWaiting && !unit->isRunning() && !play(stream, *unit)) {
        return;
    }
    // Also of one that is kept: whoever begins to listen for that is waited for.
    const tq_stream_fate fate =
        unit != nullptr || isWaiting ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE;
    // Again from time to time while it plays: who looks on may go before it ends.
    const bool isDue =
        fate == TQ_STREAM_RECORDED && Clock::now() - stream.reportedAt_ > kReportInterval;
    if (stream.fate_ != fate || isDue) {
        stream.reportedAt_ = Clock::now();
        report(stream, fate, false);
    }
}

/// Whether nothing of it has been played nor will be: it has been held back from its first sound
/// on, or what it had was thrown away before its start.
bool StreamLife::isSilent(const NativeStream& stream) {
    const BridgeUnit* const unit = stream.unit_.load();
    return unit != nullptr && !unit->isRunning() && !stream.isWaiting_.load() &&
           (stream.isHeldBack() || stream.waiting() == 0);
}

/// Starts its unit, unless there is nothing to be heard of it yet. Programs that pause a stream
/// before its first sound and never go on, or write to a device that is never started, would have a
/// track of silence for each. False when it was
/// given up.
bool StreamLife::play(NativeStream& stream, BridgeUnit& unit) {
    if (stream.isHeldBack()) {
        return true;
    }
    // What it had was thrown away before its start.
    if (stream.waiting() == 0) {
        stream.isIdle_.store(true, std::memory_order_relaxed);
        return true;
    }
    if (!mayPlay()) {
        isKept_ = true;
        return true;
    }
    unit.start();
    if (unit.isRunning()) {
        stream.fate_.reset();  // it is told that it plays
        return true;
    }
    const bool isClosed = stream.state_ == NativeStream::State::kClosed;
    if (!isClosed || ++stream.failedStarts_ < kMostStarts) {
        return true;
    }
    // Nothing will play it, and others may want the unit.
    stream.isOver_ = stream.isUnplayable_ = true;
    endStream(stream);
    return false;
}

/// Whether what is played now is heard by somebody. Who listens only when there is something to
/// hear, or in the child of a fork, takes a while to begin, and the FIFOs keep what comes
/// meanwhile. Once in a process: where nobody listens after that, nobody will.
bool StreamLife::mayPlay() {
    tq_capture_state state{};
    state.size = sizeof state;
    firstSoundAt_ = firstSoundAt_.value_or(Clock::now());
    return Clock::now() - *firstSoundAt_ > kLongestKept || tq_capture_get_state(&state) != TQ_OK ||
           state.is_capturing != 0 || !isListenerComing();
}

void StreamLife::endStream(NativeStream& stream) {
    if (BridgeUnit* const unit = stream.unit_.load(); unit != nullptr && unit->standsFor(stream)) {
        unit->stop();
    }
    reportEnd(stream);
    // Whoever found it before its key went is in a call of the native library, which may wait for
    // as long as it likes. Unit and memory stay his; the next look comes back to it.
    if (stream.users_.load() == 0) {
        stream.end();
    }
}

void StreamLife::reportUnlessDone(NativeStream& stream, tq_stream_fate fate) {
    if (stream.fate_ != fate) {
        report(stream, fate, false);
    }
}

void StreamLife::reportEnd(NativeStream& stream) {
    if (stream.fate_ == TQ_STREAM_NOTHING_WRITTEN && !stream.hasSound_) {
        report(stream, TQ_STREAM_NOTHING_WRITTEN, true);
        stream.fate_.reset();
    } else if (stream.fate_ == TQ_STREAM_EXCLUDED) {
        report(stream, TQ_STREAM_EXCLUDED, true);
        stream.fate_.reset();
    } else if (stream.fate_) {
        const FrameCounts counts = stream.fifo_->counts();
        const bool isServed =
            stream.fate_ == TQ_STREAM_NO_UNIT_FREE ? counts.read != 0 : counts.written != 0;
        report(stream, isServed ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE, true);
        stream.fate_.reset();
    }
}

/// A program may have played all of its sound and end before anybody listens.
void StreamLife::awaitListener() {
    while (true) {
        {
            const std::scoped_lock guard(lock_);
            look();
            if (!isKept_) {
                return;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// Writers that are still at work add to what is waited for, but not to how long.
void StreamLife::finish() {
    std::chrono::duration<double> longest{0};
    bool isHurried = false;
    {
        const std::scoped_lock guard(lock_);
        for (NativeStream* const stream : streams_) {
            if (stream->state_ == NativeStream::State::kUnused) {
                continue;
            }
            stream->state_ = NativeStream::State::kClosed;
            longest = std::max(longest, std::chrono::duration<double>(stream->longestWait()));
        }
        table_.clear();
    }
    awaitListener();
    {
        const std::scoped_lock guard(lock_);
        // Nobody hears it: what is there need not take the time that it lasts. But the device's
        // thread may get no processor for a while.
        isHurried = !hasOthers() && TQNullDeviceHurry(0) == 0;
        if (isHurried) {
            longest = std::max(longest, kStarved);
        }
    }
    auto end = Clock::now() + longest;
    Left before;
    for (Left left = whatIsLeft(); left.streams != 0 && Clock::now() < end; left = whatIsLeft()) {
        if (isHurried) {
            // No further than to the next end, where a stream that waits takes the unit over.
            (void)TQNullDeviceHurry(std::min(left.seconds, kLongestHurry));
            // Whoever listens may keep the device waiting. What is left only becomes less.
            const bool isLess = left.streams < before.streams || left.seconds < before.seconds;
            end = isLess ? Clock::now() + longest : end;
        }
        before = left;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const std::scoped_lock guard(lock_);
    look();
    for (NativeStream* const stream : streams_) {
        if (stream->state_ != NativeStream::State::kUnused) {
            reportEnd(*stream);
        }
    }
    if (isHurried) {
        // The device is ahead of its time and would stand still while the last blocks wait for it.
        (void)TQNullDeviceHurry(kTailSeconds);
    }
    isFinished_ = true;
}

StreamLife::Left StreamLife::whatIsLeft() {
    const std::scoped_lock guard(lock_);
    Left left;
    for (const NativeStream* const stream : streams_) {
        const bool isServed = stream->unit_.load() != nullptr || stream->isWaiting_.load();
        if (stream->state_ == NativeStream::State::kUnused || !isServed || !stream->hasSound_ ||
            stream->isOver_) {
            continue;
        }
        ++left.streams;
        if (!stream->isWaiting_.load()) {
            const double seconds = stream->secondsLeft();
            left.seconds = left.seconds == 0 ? seconds : std::min(left.seconds, seconds);
        }
    }
    return left;
}

/// Whether units of the program's own run on the same clock.
bool StreamLife::hasOthers() const {
    struct Count {
        const StreamLife& life;
        bool hasOthers = false;
    } count{*this};
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            auto& seen = *static_cast<Count*>(context);
            const auto& own = seen.life.units_;
            seen.hasOthers =
                seen.hasOthers || (unit->is_started != 0 &&
                                   std::none_of(own.begin(), own.end(), [&](const auto& one) {
                                       return one->name() == unit->name;
                                   }));
        },
        &count);
    return count.hasOthers;
}

/// The parent plays on. A stream that is open is the child's as well, which nearly always leaves it
/// alone: it is made anew where the child writes to it.
void StreamLife::forgetAfterFork() {
    hasThread_ = false;
    firstSoundAt_.reset();
    sem_init(&work_, 0, 0);
    for (const auto& unit : units_) {
        unit->forgetAfterFork();
    }
    for (NativeStream* const stream : streams_) {
        stream->users_ = 0;
        stream->unit_ = nullptr;
        stream->isWaiting_ = false;
        stream->isEndTaken_ = false;
        stream->hasSound_ = false;
        stream->fate_.reset();
        if (stream->state_ == NativeStream::State::kOpen) {
            stream->isInherited_ = true;
        } else if (stream->state_ == NativeStream::State::kClosed) {
            stream->isOver_ = true;
        }
    }
}

void StreamLife::inherit(NativeStream& stream) {
    const std::scoped_lock guard(lock_);
    if (!stream.isInherited_.exchange(false) || isFinished_) {
        return;
    }
    if (!stream.beginInChild(++lastNumber_)) {
        report(stream, TQ_STREAM_NO_MEMORY, false);
        return;
    }
    seat(stream);
    startThread();
}

}  // namespace tq::bridges
