// The caretaker of HandoverBackend: looks after the device on a thread of its own.

#include <pthread.h>
#include <unistd.h>

#include <utility>

#include "device/DeviceNotices.h"
#include "device/handover/HandoverBackend.h"

namespace tqplatform {

namespace {

constexpr std::chrono::milliseconds kLookStep{250};
/// What the server answers so soon is no reason to look after anything else: a second.
constexpr int kPatientLooks = 4;
constexpr std::chrono::milliseconds kRetryStep{500};

}  // namespace

void HandoverBackend::tellRouteChange(AVAudioSessionRouteChangeReason reason) noexcept {
    asParent([=] { tqplatform::tellRouteChange(reason); });
}

void HandoverBackend::tellInterruptionBegan(AVAudioSessionInterruptionReason reason) noexcept {
    asParent([=] { tqplatform::tellInterruptionBegan(reason); });
}

void HandoverBackend::tellInterruptionEnded() noexcept {
    asParent([] { tqplatform::tellInterruptionEnded(); });
}

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
    while (!orNothing([&] { return closeDevice(false); })) {
    }
}

void HandoverBackend::aside(const std::shared_ptr<Kept>& kept, std::function<void(Kept&)> call) {
    if (beside_ == nullptr) {
        beside_ = std::make_unique<HeardThread>();
    }
    const auto holdUp = [this](bool isHeldUp) {
        const std::lock_guard lock(care_.mutex);
        care_.isHeldUp = isHeldUp;
        care_.done.notify_all();
    };
    beside_->begin([kept, call = std::move(call)] { call(*kept); });
    for (int step = 1; !beside_->await(kLookStep); ++step) {
        // The first who asks waits his time; those behind him know better.
        holdUp(step > kPatientLooks);
        if (step >= kPatientLooks && !lookMeanwhile(step > kWakingLooks)) {
            kept->gate.close();
            device_.reset();
            beside_.reset();
            throw Ended();
        }
    }
    holdUp(false);
}

void HandoverBackend::look(std::unique_lock<std::mutex>& lock) {
    const bool isWanted = care_.wants.bits() != 0 && !care_.isRefused;
    HeardWish wish = wished();
    const bool isHeard = care_.wants.heard;
    const bool isHearing = care_.wants.hearing;
    const bool isMeeting = care_.meets && !care_.isRefused && !wasOpen_.load();
    const bool isTrying = care_.awaitsRate && wish.sampleRate != takenRate_ && wasOpen_.load();
    const bool isFormatLate = std::exchange(care_.isFormatLate, false);
    lock.unlock();
    if (isWanted || isInterrupted_) {
        heedSleep();
    }
    const bool isToRun = isWanted && !isAsleep_;
    const bool isLost = isLost_.load();
    const bool isOutdated = std::exchange(isOutdated_, false);
    const bool heardAlone = device_ != nullptr && !deviceWish_.isToPlay && isHearing;
    const bool isChosen = device_ != nullptr && wish.microphone != deviceWish_.microphone;
    const bool hasOtherLength = device_ != nullptr && wish.seconds != deviceWish_.seconds;
    if (device_ != nullptr && (!isToRun || isLost || isOutdated || !isOpenFor(wish))) {
        if (!closeDevice(!isLost, isToRun || isAsleep_)) {
            isOutdated_ = isOutdated;
            lock.lock();
            return;
        }
        if (isAsleep_) {
            interrupt(AVAudioSessionInterruptionReasonAppWasSuspended);
        }
    }
    bool isThere = true;
    if (isToRun && device_ == nullptr) {
        const bool stoodStill = stoodStill_;
        const Float64 wishedRate = wish.sampleRate;
        isThere = openDevice(wish);
        const bool isRateRefused = wish.sampleRate != wishedRate;
        const bool isRefusalTold = isRateRefused && refuseRate(wishedRate);
        const bool isOther = isThere && isNews(isRateRefused) && !isRefusalTold;
        if (isThere && isInterrupted_) {
            if (isOther) {
                // Who resumes at the end knows what with.
                tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
            }
            isInterrupted_ = false;
            tellInterruptionEnded();
        } else if (isThere && isLost && !stoodStill && !wasStill_) {
            tellRouteChange(AVAudioSessionRouteChangeReasonOldDeviceUnavailable);
        } else if (isThere && (isOutdated || stoodStill || (isChosen && isHearing)) && !wasStill_) {
            tellRouteChange(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
        } else if (isThere && isDeafAlone_ && !wish.isToPlay) {
            tellHearing(true);
        } else if (isOther || (isThere && heardAlone && wish.isToPlay)) {
            // Who listened has missed what was to be heard while the speakers were opened.
            tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
        } else if (isThere && hasOtherLength) {
            hasNewLength_ = true;  // whoever has asked for it is still waiting
        } else if (!isThere && !isHeard) {
            tellHearing(false);
        } else if (!isThere && hasRun_) {
            interrupt(AVAudioSessionInterruptionReasonRouteDisconnected);
        } else if (!isThere && !hasRun_ && wasOpen_.load() && !saidThatItCannot_) {
            // What never ran was not interrupted.
            saidThatItCannot_ = true;
            say("what answers cannot play, using null until it can");
        }
    } else if (isMeeting) {
        isThere = meetDevice(wish);
        if (isThere && isNews(false)) {
            // Who came too late to be answered has read another.
            tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
        }
    } else if (isTrying && !isWanted) {
        tryRate(wish);
    }
    isDeafAlone_ = isHearing && !isThere && !isHeard;
    // What is away is no longer still, and is heard as soon as it is back.
    wasStill_ = wasStill_ && isHearing && isThere;
    if (isInterrupted_ && !isAsleep_ && (!isWanted || isDeafAlone_) && meetDevice(wish)) {
        // What was interrupted is there again, though nobody plays on it or there is no microphone.
        if (isNews(false)) {
            tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
        }
        isInterrupted_ = false;
        tellInterruptionEnded();
    }
    if (isFormatLate && isNews(false)) {
        tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
    }
    if (!isHearing) {
        toldHearing_ = false;
    }
    if (!isWanted && !isInterrupted_) {
        // Nobody delays the machine's sleep who has nothing to stop.
        sleepNews_.end();
        isAsleep_ = false;
    }
    if (device_ != nullptr && wish.microphone != deviceWish_.microphone) {
        choose(wish.microphone);
    }
    if (device_ != nullptr && isHearing != wasHearing_) {
        wasHearing_ = isHearing;
        listen(isHearing);
        // Who has just begun to listen knows nothing yet.
        toldHearing_ = wasStill_ ? toldHearing_ : device_->device->isHearing();
    }
    isHearing_.store(hears());
    lock.lock();
    if (!isThere && !wasOpen_.load() && !care_.isRefused) {
        care_.isRefused = true;
        lock.unlock();
        say(kThereIsNone);
        lock.lock();
    }
}

HeardWish HandoverBackend::wished() const {
    HeardWish wish = care_.wish;
    // Speakers that play go on for who listens: another opening would be a hole in what is heard.
    const bool plays = isUp_ && deviceWish_.isToPlay && !isLost_.load();
    wish.isToPlay = care_.wants.heard || !care_.wants.hearing || plays;
    return wish;
}

bool HandoverBackend::isOpenFor(const HeardWish& wish) const {
    HeardWish open = deviceWish_;
    if (open.isToPlay) {
        open.microphone = wish.microphone;  // beside speakers it is exchanged alone
    }
    return open == wish;
}

bool HandoverBackend::isWantedAgain() noexcept {
    const std::lock_guard lock(care_.mutex);
    return orNothing(
        [&] { return care_.isPlayingOut && care_.wants.bits() != 0 && isOpenFor(wished()); });
}

void HandoverBackend::noteSleep() {
    while (const std::optional<bool> news = sleepNews_.news()) {
        isAsleep_ = *news;
    }
}

void HandoverBackend::heedSleep() {
    while (true) {
        if (isAsleep_ && device_ != nullptr) {
            if (!closeDevice(false)) {
                return;  // the machine waits meanwhile
            }
            interrupt(AVAudioSessionInterruptionReasonAppWasSuspended);
        }
        const std::optional<bool> news = sleepNews_.news();
        if (!news) {
            return;
        }
        isAsleep_ = *news;
    }
}

void HandoverBackend::interrupt(AVAudioSessionInterruptionReason reason) {
    if (!std::exchange(isInterrupted_, true)) {
        tellInterruptionBegan(reason);
    }
}

bool HandoverBackend::lookMeanwhile(bool standsStill) {
    bool isToPlay = false;
    {
        const std::lock_guard lock(care_.mutex);
        if (care_.isEnding) {
            return false;
        }
        isToPlay = care_.wants.heard && !care_.isRefused;
    }
    noteSleep();
    if (isUp_) {
        watchRequests();
    } else if (isToPlay && hasRun_ && (standsStill || isAsleep_)) {
        interrupt(isAsleep_ ? AVAudioSessionInterruptionReasonAppWasSuspended
                            : AVAudioSessionInterruptionReasonRouteDisconnected);
    }
    return true;
}

}  // namespace tqplatform
