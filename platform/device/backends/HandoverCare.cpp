// The caretaker of HandoverBackend: opens, watches and ends the device on a thread of its own.

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <utility>

#include "device/DeviceNotices.h"
#include "device/backends/HandoverBackend.h"

namespace tqplatform {

namespace {

constexpr std::chrono::milliseconds kLookStep{250};
constexpr std::chrono::milliseconds kRetryStep{500};
constexpr std::chrono::milliseconds kFirstRequestStep{1};
constexpr int kFirstRequestSteps = 1000;
constexpr std::chrono::milliseconds kLongestPlayOut{600};
/// Looks without a request after which the clock drives until the next one: a second.
constexpr int kQuietLooks = 4;
/// Looks behind the start in which it does not: a sink that sleeps takes seconds to wake, and what
/// was rendered for the clock meanwhile would not be heard.
constexpr int kWakingLooks = 12;
/// The same after which the device counts as gone: ten seconds.
constexpr int kMostQuietLooks = 40;
/// Looks after which a microphone that is wanted and not open is tried again: half a second.
constexpr int kDeafLooks = 2;

/// What a device does on the caretaker's thread; nothing where there is no memory for it.
template <typename Call>
auto orNothing(Call call) noexcept -> decltype(call()) {
    try {
        return call();
    } catch (const std::exception&) {
        return decltype(call())();
    }
}

}  // namespace

void HandoverBackend::takeCare() {
    pthread_setname_np(pthread_self(), "TQAudioHandover");
    std::unique_lock lock(care_.mutex);
    while (!care_.isEnding) {
        const std::uint64_t request = care_.requests;
        orNothing([&] { return look(lock); });
        if (!lock.owns_lock()) {
            lock.lock();
        }
        care_.answered = request;
        care_.done.notify_all();
        // One that is lost while it is opened is tried again in time, not at once.
        const auto isNews = [&] {
            return care_.isEnding || care_.requests != request ||
                   (isLost_.load() && device_ != nullptr);
        };
        if (device_ != nullptr) {
            if (!care_.asked.wait_for(lock, kLookStep, isNews)) {
                orNothing([&] { return watch(lock); });
                if (!lock.owns_lock()) {
                    lock.lock();
                }
            }
        } else if (isInterrupted_ || (care_.wants.bits() != 0 && wasOpen_.load())) {
            // A program that was told that it is interrupted waits for the end, also when it has
            // stopped its units for that.
            care_.asked.wait_for(lock, kRetryStep, isNews);
        } else {
            care_.asked.wait(lock, isNews);
        }
    }
    lock.unlock();
    closeDevice(false);
}

void HandoverBackend::look(std::unique_lock<std::mutex>& lock) {
    const bool isWanted = care_.wants.bits() != 0 && !care_.isRefused;
    HeardWish wish = care_.wish;
    wish.isToPlay = care_.wants.heard || !care_.wants.hearing;
    const bool isHearing = care_.wants.hearing;
    const bool isMeeting = care_.meets && !care_.isRefused && !wasOpen_.load();
    lock.unlock();
    if (isWanted || isInterrupted_) {
        heedSleep();
    }
    const bool isToRun = isWanted && !isAsleep_;
    const bool isLost = isLost_.load();
    const bool isOutdated = std::exchange(isOutdated_, false);
    if (device_ != nullptr && (!isToRun || isLost || isOutdated || wish != deviceWish_)) {
        closeDevice(!isLost);
    }
    bool isThere = true;
    if (isToRun && device_ == nullptr) {
        const bool stoodStill = stoodStill_;
        isThere = openDevice(wish, true);
        if (isThere && isInterrupted_) {
            isInterrupted_ = false;
            tellInterruptionEnded();
        } else if (isThere && isLost && !stoodStill) {
            tellRouteChange(AVAudioSessionRouteChangeReasonOldDeviceUnavailable);
        } else if (isThere && (isOutdated || stoodStill)) {
            tellRouteChange(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
        } else if (!isThere && hasRun_ && !isInterrupted_) {
            isInterrupted_ = true;
            tellInterruptionBegan(AVAudioSessionInterruptionReasonRouteDisconnected);
        } else if (!isThere && !hasRun_ && wasOpen_.load() && wish.isToPlay && !saidThatItCannot_) {
            // What never ran was not interrupted.
            saidThatItCannot_ = true;
            say("what answers cannot play, using null until it can");
        }
    } else if (isMeeting) {
        isThere = openDevice(wish, false);
    } else if (isInterrupted_ && !isWanted && !isAsleep_ && openDevice(wish, false)) {
        isInterrupted_ = false;
        tellInterruptionEnded();
    }
    if (!isWanted && !isInterrupted_) {
        // Nobody delays the machine's sleep who has nothing to stop.
        sleepWatch_.reset();
        isAsleep_ = false;
    }
    if (device_ != nullptr && isHearing != wasHearing_) {
        wasHearing_ = isHearing;
        listen(isHearing);
        // Who has just begun to listen knows nothing yet.
        toldHearing_ = device_->isHearing();
    }
    isHearing_.store(device_ != nullptr && device_->isHearing());
    lock.lock();
    if (!isThere && !wasOpen_.load() && !care_.isRefused) {
        care_.isRefused = true;
        lock.unlock();
        say(kThereIsNone);
        lock.lock();
    }
}

void HandoverBackend::heedSleep() {
    while (const std::optional<bool> news =
               sleepWatch_ == nullptr ? std::nullopt : sleepWatch_->news()) {
        isAsleep_ = *news;
        if (!isAsleep_ || device_ == nullptr) {
            continue;
        }
        closeDevice(false);
        isInterrupted_ = true;
        tellInterruptionBegan(AVAudioSessionInterruptionReasonAppWasSuspended);
    }
}

void HandoverBackend::watch(std::unique_lock<std::mutex>& lock) {
    const bool wantsHearing = care_.wants.hearing && deviceWish_.isToPlay;
    lock.unlock();
    const std::uint64_t requests = heardRequests_.load(std::memory_order_relaxed);
    quietLooks_ = requests == seenRequests_ ? quietLooks_ + 1 : 0;
    seenRequests_ = requests;
    if (const bool standsStill = quietLooks_ >= kQuietLooks;
        standsStill != stoodStill_ && (standsStill || quietLooks_ == 0)) {
        stoodStill_ = standsStill;
        tellRouteChange(standsStill ? AVAudioSessionRouteChangeReasonOldDeviceUnavailable
                                    : AVAudioSessionRouteChangeReasonNewDeviceAvailable);
    }
    if (quietLooks_ >= kMostQuietLooks) {
        isLost_.store(true);
    } else if (++looks_ > kWakingLooks && quietLooks_ >= kQuietLooks) {
        driveByClock();
    }
    // The device may have taken over again meanwhile.
    static_cast<void>(settleClock());
    if (sleepWatch_ == nullptr && watchSleep_ != nullptr) {
        sleepWatch_ = watchSleep_();  // not before the first block: nobody waits for it
    }
    if (wantsHearing && quietLooks_ == 0) {
        listenAgain();  // which asks the server: one that stands still would hold this up
    }
    followPlace();
    lock.lock();
}

void HandoverBackend::listen(bool isHearing) {
    if (!device_->hear(isHearing)) {
        isOutdated_ = true;
    }
}

void HandoverBackend::listenAgain() {
    deafLooks_ = device_->isHearing() ? 0 : deafLooks_ + 1;
    if (deafLooks_ >= kDeafLooks) {
        deafLooks_ = 0;
        listen(false);
        listen(true);
    }
    const bool isHearing = device_->isHearing();
    isHearing_.store(isHearing);
    if (toldHearing_ != isHearing) {
        toldHearing_ = isHearing;
        tellRouteChange(isHearing ? AVAudioSessionRouteChangeReasonNewDeviceAvailable
                                  : AVAudioSessionRouteChangeReasonOldDeviceUnavailable);
    }
}

void HandoverBackend::followPlace() {
    const HeardPlace now = device_->place();
    const auto hasChanged = [](HeardEnd& before, const HeardEnd& end) {
        const bool isAnother = before.isKnown() && end.isKnown() && before != end;
        before = end.isKnown() ? end : before;
        return isAnother;
    };
    const bool hasMoved = hasChanged(place_.speakers, now.speakers);
    const bool hearsAnother = hasChanged(place_.microphone, now.microphone);
    if (!device_->isHearing()) {
        place_.microphone = {};  // that it is heard again is told as such
    }
    const bool wasMoving = std::exchange(isMoving_, hasMoved || hearsAnother);
    // The server changes several things one after the other: once they stay it is told, once.
    if (!wasMoving || isMoving_ || isOutdated_) {
        return;
    }
    if (isStale(now)) {
        isOutdated_ = true;  // and is told when it is open
    } else {
        tellRouteChange(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
    }
}

bool HandoverBackend::isStale(const HeardPlace& now) const {
    // What is played elsewhere than on the default would be opened with the default's rate.
    const bool hasOtherRate = deviceWish_.isToPlay && deviceWish_.sampleRate <= 0 &&
                              now.speakers.isDefault &&
                              now.speakers.sampleRate != heardFormat_.sampleRate;
    const bool hasOtherChannels =
        now.microphone.isKnown() && now.microphone.channels != heardFormat_.inputChannels;
    return hasOtherRate || hasOtherChannels;
}

bool HandoverBackend::openDevice(const HeardWish& wish, bool isToPlay) {
    isLost_.store(false);
    heardRequests_.store(0, std::memory_order_relaxed);
    seenRequests_ = 0;
    quietLooks_ = looks_ = deafLooks_ = 0;
    stoodStill_ = isMoving_ = wasHearing_ = false;
    std::unique_ptr<HeardDevice> device = make_();
    std::optional<DeviceFormat> format =
        device == nullptr ? std::nullopt : orNothing([&] { return device->open(*this, wish); });
    if (!format) {
        return false;
    }
    {
        const std::lock_guard lock(care_.mutex);
        if (care_.isRefused) {
            return false;  // it came too late: programs were told that there is none
        }
    }
    // The clock keeps the device's rate, so that going over changes nothing for the units.
    if (wish.sampleRate <= 0) {
        static_cast<void>(clock_->preferRate(format->sampleRate, true));
    }
    {
        // Nothing renders in the device's name yet, but the clock may.
        const Turn turn(turn_, std::chrono::hours(1));
        heardFormat_ = *format;
        publish(Driver::clock);
    }
    wasOpen_.store(true);
    if (!isToPlay) {
        return true;
    }
    playOutAtExit();
    process_.store(getpid(), std::memory_order_relaxed);
    isOffered_.store(true, std::memory_order_release);
    device_ = std::move(device);
    deviceWish_ = wish;
    place_ = {};
    bool hasBegun = orNothing([&] { return device_->start(); });
    // What only listens need not be waited for: a source that sleeps says nothing for seconds.
    for (int step = 0; wish.isToPlay && hasBegun && heardRequests_.load() == 0 && !isLost_.load();
         ++step) {
        hasBegun = step < kFirstRequestSteps;
        std::this_thread::sleep_for(kFirstRequestStep);
    }
    if (!hasBegun || isLost_.load()) {
        closeDevice(false);
        return false;
    }
    toldHearing_ = device_->isHearing();
    static_cast<void>(settleClock());
    hasRun_ = true;
    return true;
}

void HandoverBackend::playOutAtExit() noexcept {
    if (playsOut_.exchange(this) != nullptr) {
        return;
    }
    static_cast<void>(std::atexit([] {
        if (HandoverBackend* const self = playsOut_.load()) {
            std::unique_lock lock(self->care_.mutex);
            self->care_.done.wait_for(lock, kLongestPlayOut,
                                      [&] { return self->care_.answered == self->care_.requests; });
        }
    }));
}

void HandoverBackend::closeDevice(bool isAlive) {
    isOffered_.store(false);
    driveByClock();
    if (device_ != nullptr && isAlive && deviceWish_.isToPlay) {
        device_->finish();
    }
    device_.reset();
    // A loss that came meanwhile is that device's: the next start has lost nothing.
    isLost_.store(false);
    isHearing_.store(false);
}

void HandoverBackend::driveByClock() {
    {
        // Waits for a block that is under way, however long its callbacks take.
        const Turn turn(turn_, std::chrono::hours(1));
        if (driver_.load() == Driver::device) {
            driver_.store(Driver::clock);
            publish(Driver::clock);
        }
    }
    static_cast<void>(settleClock());
}

}  // namespace tqplatform
