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

/// How long a hurried device's thread may be kept from its work by a busy machine.
constexpr std::chrono::duration<double> kStarved{1};
/// In which a stopped unit's last blocks have been delivered: three passes of the device and more.
constexpr double kTailSeconds = 0.05;
constexpr double kLongestHurry = 60;
constexpr std::chrono::milliseconds kReportInterval{250};
/// Between two looks while a stream waits for something that nobody announces.
constexpr std::chrono::milliseconds kShortPause{50};
/// Looks at a closed stream whose unit does not start before it is given up: a second of them.
constexpr int kMostStarts = 20;

timespec in(std::chrono::milliseconds pause) {
    timespec then{};
    clock_gettime(CLOCK_REALTIME, &then);
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
        while (sem_timedwait(&work_, &then) != 0 && errno == EINTR) {
        }
    } else {
        while (sem_wait(&work_) != 0 && errno == EINTR) {
        }
    }
}

/// None where every stream is silent: a first frame and an end wake the thread.
std::optional<std::chrono::milliseconds> StreamLife::pauseToNextLook() const {
    std::optional<std::chrono::milliseconds> pause;
    for (const NativeStream* const stream : streams_) {
        if (stream->state_ == NativeStream::State::kUnused) {
            continue;
        }
        const BridgeUnit* const unit = stream->unit_.load();
        if (stream->state_ == NativeStream::State::kClosed || stream->isWaiting_.load() ||
            (stream->hasSound_.load() && (unit == nullptr || !unit->isRunning()))) {
            return kShortPause;
        }
        if (stream->hasSound_.load()) {
            pause = kReportInterval;
        }
    }
    return pause;
}

void StreamLife::look() {
    for (NativeStream* const stream : streams_) {
        if (stream->state_ != NativeStream::State::kUnused) {
            lookAt(*stream);
        }
    }
}

void StreamLife::lookAt(NativeStream& stream) {
    const bool hasSound = stream.hasSound_.load(std::memory_order_acquire);
    const bool isClosed = stream.state_ == NativeStream::State::kClosed;
    const bool isUnserved = stream.unit_.load() == nullptr && !stream.isWaiting_.load();
    if (isClosed && (stream.isOver_ || !hasSound || isUnserved)) {
        endStream(stream);
        return;
    }
    if (stream.isWaiting_.load() || (stream.unit_.load() == nullptr && hasSound)) {
        seat(stream);
    }
    if (!hasSound) {
        return;
    }
    const bool isWaiting = stream.isWaiting_.load();
    BridgeUnit* const unit = stream.unit_.load();
    if (unit != nullptr && !isWaiting && !unit->isRunning()) {
        unit->start();
        if (!unit->isRunning() && isClosed && ++stream.failedStarts_ >= kMostStarts) {
            // Nothing will play it, and others may want the unit.
            stream.unplayable_ = stream.fifo_->counts().waiting;
            stream.isOver_ = true;
            endStream(stream);
            return;
        }
    }
    const tq_stream_fate fate =
        unit != nullptr || isWaiting ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE;
    // Again from time to time while it plays: who looks on may go before it ends.
    const auto now = std::chrono::steady_clock::now();
    const bool isDue = fate == TQ_STREAM_RECORDED && now - stream.reportedAt_ > kReportInterval;
    if (stream.fate_ != fate || isDue) {
        stream.reportedAt_ = now;
        report(stream, fate, false);
    }
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

void StreamLife::reportEnd(NativeStream& stream) {
    if (stream.fate_) {
        const bool isServed = stream.fifo_->counts().written != 0;
        report(stream, isServed ? TQ_STREAM_RECORDED : TQ_STREAM_NO_UNIT_FREE, true);
        stream.fate_.reset();
    }
}

/// Writers that are still at work add to what is waited for, but not to how long.
void StreamLife::finish() {
    using Clock = std::chrono::steady_clock;
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
        look();
        // Nobody hears it: what is there need not take the time that it lasts. But the device's
        // thread may get no processor for a while.
        isHurried = !hasOthers() && TQNullDeviceHurry(0) == 0;
        if (isHurried) {
            longest = std::max(longest, kStarved);
        }
    }
    auto end = Clock::now() + longest;
    std::size_t before = 0;
    for (Left left = whatIsLeft(); left.streams != 0 && Clock::now() < end; left = whatIsLeft()) {
        if (isHurried) {
            // No further than to the next end, where a stream that waits takes the unit over.
            (void)TQNullDeviceHurry(std::min(left.seconds, kLongestHurry));
            end = left.streams < before ? Clock::now() + longest : end;
        }
        before = left.streams;
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
    if (!stream.begin(stream.format_, stream.name_, ++lastNumber_)) {
        report(stream, TQ_STREAM_NO_MEMORY, false);
        return;
    }
    seat(stream);
    startThread();
}

}  // namespace tq::bridges
