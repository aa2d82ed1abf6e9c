#include "device/handover/HandoverBackend.h"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <utility>

#include "common/SignalsBlocked.h"
#include "device/handover/LoaderLock.h"
#include "format/PCMFormat.h"

namespace tqplatform {

namespace {

constexpr UInt32 kMaximumFrames = 4096;
constexpr std::chrono::seconds kLongestWait{1};
/// A callback that holds the turn may wait for a lock of whoever wants it.
constexpr std::chrono::milliseconds kLongestTurn{25};

}  // namespace

HandoverBackend::HandoverBackend(std::string name, HeardMaker make, std::unique_ptr<Backend> clock,
                                 SleepWatchMaker watchSleep)
    : name_(std::move(name)),
      make_(std::move(make)),
      clock_(std::move(clock)),
      sleepNews_(std::move(watchSleep)) {
}

HandoverBackend::~HandoverBackend() {
    HandoverBackend* self = this;
    playsOut_.compare_exchange_strong(self, nullptr);
    std::unique_lock lock(care_.mutex);
    if (care_.thread.joinable()) {
        care_.isEnding = true;
        care_.asked.notify_all();
        lock.unlock();
        care_.thread.join();
    }
}

std::optional<DeviceFormat> HandoverBackend::open(BackendHost& host) {
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

bool HandoverBackend::start() {
    isRunning_.store(true);
    return settleClock();
}

void HandoverBackend::stop() noexcept {
    isRunning_.store(false);
    static_cast<void>(settleClock());
}

bool HandoverBackend::settleClock() noexcept {
    const std::lock_guard lock(clockVerbs_);
    const bool isToRun = isRunning_.load() && driver_.load() == Driver::clock;
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

AudioTimeStamp HandoverBackend::render(const BlockRequest& block) noexcept {
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

void HandoverBackend::renderHeard(const BlockRequest& block) noexcept {
    const Turn turn(turn_);
    // What was offered is the device's format and that it may take over: acquired here.
    const bool mayDrive = turn && isOffered_.load(std::memory_order_acquire);
    if (!mayDrive) {
        tqcommon::silence(block.played);
        return;
    }
    if (driver_.load(std::memory_order_relaxed) != Driver::device) {
        driver_.store(Driver::device, std::memory_order_relaxed);
        publish(Driver::device);
    }
    BlockRequest timed = block;
    times_.ofDevice(timed, published_.sampleRate);
    host_->render(timed);
    if (getpid() != process_.load(std::memory_order_relaxed)) [[unlikely]] {
        stayAsChild();
    }
}

void HandoverBackend::stayAsChild() noexcept {
    // A callback has forked: this is the child's only thread, but the server's connection is the
    // parent's. Units that the child starts play on a device of its own.
    forgetAfterFork();
    rest();
}

void HandoverBackend::rest() noexcept {
    while (true) {
        pause();
    }
}

void HandoverBackend::publish(Driver driver) noexcept {
    DeviceFormat now = heardFormat_;
    if (driver == Driver::clock) {
        now.sampleRate = clockRate_.load(std::memory_order_relaxed);
        now.usualFrames = clockFrames_.load(std::memory_order_relaxed);
    }
    now.maximumFrames = kMaximumFrames;
    published_ = now;
    host_->changed(now);
}

void HandoverBackend::changed(const DeviceFormat& format) noexcept {
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

void HandoverBackend::changedLate() noexcept {
    {
        const std::lock_guard lock(care_.mutex);
        if (care_.thread.joinable()) {
            // It tells all else: one thing behind the other.
            care_.isFormatLate = true;
            ++care_.requests;
            care_.asked.notify_one();
            return;
        }
    }
    host_->changedLate();
}

void HandoverBackend::lost() noexcept {
    host_->lost();
}

void HandoverBackend::lostHeard() noexcept {
    const std::lock_guard lock(care_.mutex);
    isLost_.store(true);
    care_.asked.notify_one();
}

// What the host asks for.

bool HandoverBackend::preferRate(Float64 sampleRate, bool mayWait) noexcept {
    if (isBeingRefused(sampleRate) || !clock_->preferRate(sampleRate, mayWait)) {
        return false;
    }
    std::unique_lock lock(care_.mutex);
    care_.wish.sampleRate = sampleRate;
    care_.awaitsRate = mayWait && !care_.isPlayingOut;
    isRateRefused_.store(false);
    ask(lock, care_.awaitsRate);
    if (!lock.owns_lock()) {
        lock.lock();
    }
    care_.awaitsRate = false;
    return care_.wish.sampleRate == sampleRate;
}

bool HandoverBackend::isBeingRefused(Float64 sampleRate) noexcept {
    const std::lock_guard lock(care_.mutex);
    return std::this_thread::get_id() == care_.thread.get_id() && refusing_ == sampleRate;
}

bool HandoverBackend::preferDuration(Float64 seconds, bool mayWait) noexcept {
    // The clock that drives in gaps, or alone, has them as well.
    const bool isTheClocks = clock_->preferDuration(seconds, mayWait);
    std::unique_lock lock(care_.mutex);
    care_.wish.seconds = seconds;
    ask(lock, mayWait && !care_.isPlayingOut);
    if (!lock.owns_lock()) {
        lock.lock();
    }
    return isTheClocks || !care_.isRefused;
}

bool HandoverBackend::preferMicrophone(const std::string& name) noexcept {
    std::unique_lock lock(care_.mutex);
    care_.wish.microphone = name;
    ask(lock, !care_.isPlayingOut);
    if (!lock.owns_lock()) {
        lock.lock();
    }
    return !care_.isRefused;
}

void HandoverBackend::expect(const ClientWants& wants, bool mayWait) noexcept {
    std::unique_lock lock(care_.mutex);
    const bool isMore = (wants.bits() & ~care_.wants.bits()) != 0;
    care_.wants = wants;
    ask(lock, mayWait && isMore);
}

void HandoverBackend::meet() noexcept {
    std::unique_lock lock(care_.mutex);
    care_.meets = true;
    ask(lock, true);
}

bool HandoverBackend::hurry(Float64 seconds) noexcept {
    return driver_.load() == Driver::clock && clock_->hurry(seconds);
}

void HandoverBackend::ask(std::unique_lock<std::mutex>& lock, bool mayWait) noexcept {
    const std::uint64_t mine = ++care_.requests;
    if (!care_.thread.joinable()) {
        // Nobody has to look after a device that nobody has asked for.
        if (care_.isRefused || (!care_.meets && care_.wants.bits() == 0)) {
            return;
        }
        try {
            const tqcommon::SignalsBlocked blocked;
            care_.thread = std::thread([this] { takeCare(); });
        } catch (const std::exception&) {
            return;  // the clock goes on; the next who asks tries again
        }
    }
    care_.asked.notify_one();
    // A handler of a notice may start a unit: it is called by the thread that would open the
    // device.
    if (mayWait && std::this_thread::get_id() != care_.thread.get_id()) {
        const bool isAnswered = care_.done.wait_for(
            lock, kLongestWait, [&] { return care_.answered >= mine || care_.isHeldUp; });
        if (!isAnswered && !wasOpen_.load()) {
            refuse(lock, mine);
        }
    }
}

void HandoverBackend::refuse(std::unique_lock<std::mutex>& lock, std::uint64_t request) noexcept {
    lock.unlock();
    const bool isCallersDoing = orNothing(isLoaderHeld);
    lock.lock();
    const bool isAnswered = care_.answered >= request || care_.isHeldUp;
    if (wasOpen_.load() || care_.isRefused || isAnswered) {
        return;
    }
    if (isCallersDoing) {
        care_.comesLate = true;
        return;
    }
    care_.isRefused = true;
    lock.unlock();
    say(kThereIsNone);
}

void HandoverBackend::say(const char* what) const noexcept {
    std::fprintf(stderr, "TQ_AUDIO_DEVICE=%s: %s\n", name_.c_str(), what);
}

void HandoverBackend::forgetAfterFork() noexcept {
    // What the program prefers holds on. A name that somebody was just writing may be half a name.
    HeardWish wish{.sampleRate = care_.wish.sampleRate, .seconds = care_.wish.seconds};
    if (care_.mutex.try_lock()) {
        wish.microphone = care_.wish.microphone;
    }
    // Constructed anew over the old: neither threads nor the server's connection are the child's.
    std::construct_at(&care_);
    care_.wish = std::move(wish);
    std::construct_at(&clockVerbs_);
    std::construct_at(&device_);
    static_cast<void>(beside_.release());
    isUp_ = false;
    sleepNews_.forgetAfterFork();
    isAsleep_ = false;
    wasOpen_.store(false);
    hasRun_ = isInterrupted_ = toldHearing_ = stoodStill_ = wasStill_ = isOutdated_ =
        hasNewLength_ = false;
    takenRate_ = 0;
    isHearing_.store(false);
    isOffered_.store(false);
    isLost_.store(false);
    driver_.store(Driver::clock);
    turn_.clear();
    isRunning_.store(false);
    clockRuns_ = false;
    clock_->forgetAfterFork();
}

}  // namespace tqplatform
