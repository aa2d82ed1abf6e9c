#include "device/handover/Driving.h"

#include <unistd.h>

#include <exception>
#include <thread>
#include <utility>

namespace tqplatform {

namespace {

constexpr UInt32 kMaximumFrames = 4096;
constexpr std::chrono::microseconds kTurnStep{100};
/// A callback that holds the turn may wait for a lock of whoever wants it.
constexpr std::chrono::milliseconds kLongestTurn{25};
/// A program's callback may hold a request for ever: what waits for its end looks at the rest
/// meanwhile.
constexpr std::chrono::milliseconds kLongestHold{500};

}  // namespace

/// The right to render and to change what drives.
class Driving::Turn {
  public:
    /// [render thread] Takes it when it is free.
    explicit Turn(std::atomic_flag& turn) noexcept
        : turn_(turn), isMine_(!turn.test_and_set(std::memory_order_acquire)) {}
    /// [host thread] Waits for it so long.
    Turn(std::atomic_flag& turn, std::chrono::nanoseconds longest) noexcept : Turn(turn) {
        const auto end = std::chrono::steady_clock::now() + longest;
        while (!isMine_ && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(kTurnStep);
            isMine_ = !turn_.test_and_set(std::memory_order_acquire);
        }
    }
    ~Turn() {
        if (isMine_) {
            turn_.clear(std::memory_order_release);
        }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    [[nodiscard]] explicit operator bool() const noexcept { return isMine_; }

  private:
    std::atomic_flag& turn_;
    bool isMine_;
};

Driving::Driving(std::unique_ptr<Backend> clock, std::function<bool()> tellLateFormat)
    : tellLateFormat_(std::move(tellLateFormat)), clock_(std::move(clock)) {
}

std::optional<DeviceFormat> Driving::open(BackendHost& host) {
    host_ = &host;
    auto format = clock_->open(*this);
    if (format) {
        clockRate_.store(format->sampleRate);
        clockFrames_.store(format->usualFrames);
        format->maximumFrames = kMaximumFrames;
        published_ = heardFormat_ = *format;
    }
    return format;
}

bool Driving::run(bool isRunning) noexcept {
    isRunning_.store(isRunning);
    return settleClock();
}

bool Driving::settleClock() noexcept {
    const std::lock_guard lock(clockVerbs_);
    const bool isToRun = isRunning_.load() && isByClock();
    if (isToRun == clockRuns_) {
        return true;
    }
    if (!isToRun) {
        clock_->stop();
    } else {
        try {
            if (!clock_->start()) {
                return false;
            }
        } catch (const std::exception&) {
            return false;
        }
    }
    clockRuns_ = isToRun;
    return true;
}

// Requests.

AudioTimeStamp Driving::render(const BlockRequest& block) noexcept {
    const Turn turn(turn_);
    if (!turn || driver_.load(std::memory_order_relaxed) != Driver::clock) {
        return {};
    }
    if (published_.sampleRate != clockRate_.load(std::memory_order_relaxed)) {
        publish(Driver::clock);
        changedLate();
    }
    BlockRequest timed = block;
    times_.ofClock(timed, published_.sampleRate);
    return host_->render(timed);
}

bool Driving::renderHeard(const BlockRequest& block) noexcept {
    const Turn turn(turn_);
    // What was offered is the device's format and that it may take over: acquired here.
    const bool mayDrive = turn && isOffered_.load(std::memory_order_acquire);
    if (!mayDrive) {
        tqcommon::silence(block.played);
        return true;
    }
    if (driver_.load(std::memory_order_relaxed) != Driver::device) {
        driver_.store(Driver::device, std::memory_order_relaxed);
        publish(Driver::device);
    }
    BlockRequest timed = block;
    times_.ofDevice(timed, published_.sampleRate);
    host_->render(timed);
    return getpid() == process_.load(std::memory_order_relaxed);
}

void Driving::publish(Driver driver) noexcept {
    DeviceFormat now = heardFormat_;
    if (driver == Driver::clock) {
        now.sampleRate = clockRate_.load(std::memory_order_relaxed);
        now.usualFrames = clockFrames_.load(std::memory_order_relaxed);
    }
    now.maximumFrames = kMaximumFrames;
    published_ = now;
    host_->changed(now);
}

void Driving::changed(const DeviceFormat& format) noexcept {
    clockRate_.store(format.sampleRate, std::memory_order_relaxed);
    clockFrames_.store(format.usualFrames, std::memory_order_relaxed);
    if (driver_.load(std::memory_order_relaxed) == Driver::device) {
        // A callback of the device that asks for a rate holds the turn: it must not wait for
        // itself. The clock's next request tells it.
        return;
    }
    const Turn turn(turn_, kLongestTurn);
    // Without the turn the clock's next request tells it.
    if (turn && driver_.load(std::memory_order_relaxed) == Driver::clock) {
        publish(Driver::clock);
    }
}

void Driving::changedLate() noexcept {
    if (!tellLateFormat_()) {
        host_->changedLate();
    }
}

// The caretaker's.

void Driving::adopt(const DeviceFormat& format) noexcept {
    static_cast<void>(clock_->preferRate(format.sampleRate, true));
    for (bool isTold = false; !isTold;) {
        // Nothing renders in the device's name yet, but the clock may.
        const Turn turn(turn_, kLongestHold);
        if (turn) {
            heardFormat_ = format;
            publish(Driver::clock);
            isTold = true;
        }
    }
}

void Driving::offer() noexcept {
    process_.store(getpid(), std::memory_order_relaxed);
    isOffered_.store(true, std::memory_order_release);
}

bool Driving::withdraw() noexcept {
    isOffered_.store(false);
    if (!driveByClock()) {
        isOffered_.store(true);
        return false;
    }
    return true;
}

bool Driving::driveByClock() noexcept {
    {
        const Turn turn(turn_, kLongestHold);
        if (!turn) {
            return false;
        }
        if (driver_.load() == Driver::device) {
            clock_->beginAt(times_.deviceIsOver());
            driver_.store(Driver::clock);
            publish(Driver::clock);
        }
    }
    static_cast<void>(settleClock());
    return true;
}

void Driving::forgetAfterFork() noexcept {
    std::construct_at(&clockVerbs_);
    forgetDeviceAfterFork();
    driver_.store(Driver::clock);
    turn_.clear();
    isRunning_.store(false);
    clockRuns_ = false;
    clock_->forgetAfterFork();
}

}  // namespace tqplatform
