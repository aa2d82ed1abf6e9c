// What HandoverBackend's caretaker sees of the device without a request of the program.

#include <algorithm>
#include <utility>

#include "device/DeviceNotices.h"
#include "device/handover/HandoverBackend.h"

namespace tqplatform {

namespace {

/// Looks without a request after which the clock drives until the next one: a second.
constexpr int kQuietLooks = 4;
/// The same after which the device counts as gone: ten seconds.
constexpr int kMostQuietLooks = 40;
/// Looks after which a microphone that is wanted and not open is tried again: half a second.
constexpr int kDeafLooks = 2;
/// The same of one that is open and brings nothing: three seconds at first, and twice as long each
/// time, up to half a minute. Desktops show each time that somebody begins to listen.
constexpr int kMostStillLooks = 120;

}  // namespace

void HandoverBackend::watchRequests() {
    const std::uint64_t requests = device_->gate.requests();
    // One that the program holds is the program's doing: the device asks again behind it.
    const bool asks = requests != seenRequests_ || device_->gate.isInside();
    quietLooks_ = asks ? 0 : quietLooks_ + 1;
    seenRequests_ = requests;
    // Of a microphone alone it is told that nothing is heard.
    if (const bool standsStill = quietLooks_ >= kQuietLooks;
        deviceWish_.isToPlay && standsStill != stoodStill_ && (standsStill || quietLooks_ == 0)) {
        stoodStill_ = standsStill;
        tellRouteChange(standsStill ? AVAudioSessionRouteChangeReasonOldDeviceUnavailable
                                    : AVAudioSessionRouteChangeReasonNewDeviceAvailable);
    }
    if (deviceWish_.isToPlay && quietLooks_ >= kMostQuietLooks) {
        isLost_.store(true);
    } else if (++looks_ > kWakingLooks && quietLooks_ >= kQuietLooks) {
        static_cast<void>(driveByClock());
    }
    // The device may have taken over again meanwhile.
    static_cast<void>(settleClock());
}

void HandoverBackend::watch(std::unique_lock<std::mutex>& lock) {
    const bool wantsHearing = care_.wants.hearing;
    lock.unlock();
    watchRequests();
    sleepNews_.begin();  // not before the first block
    if (std::exchange(hasNewLength_, false)) {
        tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
    }
    if (!deviceWish_.isToPlay) {
        watchMicrophone();
    } else if (wantsHearing && quietLooks_ == 0) {
        listenAgain();
    }
    followPlace();
    lock.lock();
}

void HandoverBackend::listen(bool isHearing) {
    aside(device_, [isHearing](Kept& kept) {
        kept.answer = orNothing([&] { return kept.device->hear(isHearing); });
    });
    isOutdated_ = isOutdated_ || !device_->answer;
}

void HandoverBackend::choose(const std::string& microphone) {
    aside(device_, [microphone, isHearing = wasHearing_](Kept& kept) {
        kept.answer = orNothing([&] {
            const bool isClosed = kept.device->hear(false);
            kept.device->choose(microphone);
            return isClosed && (!isHearing || kept.device->hear(true));
        });
    });
    isOutdated_ = isOutdated_ || !device_->answer;
    deviceWish_.microphone = microphone;
    deafLooks_ = 0;
    stillLooks_ = kWakingLooks;
    // Told as one that the system has put there; that none is heard, or one at last, as such.
    isMoving_ = isMoving_ || (wasHearing_ && toldHearing_ && device_->device->isHearing());
}

bool HandoverBackend::awaitsFirstBlock() const {
    return wasStill_ && !deviceWish_.isToPlay && device_->gate.requests() == 0;
}

bool HandoverBackend::hears() const {
    return device_ != nullptr && device_->device->isHearing() && !awaitsFirstBlock();
}

void HandoverBackend::noteHearing() {
    isHearing_.store(hears());
    tellHearing(hears());
}

bool HandoverBackend::isToListenAgain() {
    if (hears()) {
        deafLooks_ = 0;
        stillLooks_ = kWakingLooks;
        return false;
    }
    const bool isStill = device_->device->isStill() || awaitsFirstBlock();
    if (++deafLooks_ < (isStill ? stillLooks_ : kDeafLooks)) {
        return false;
    }
    deafLooks_ = 0;
    stillLooks_ = isStill ? std::min(2 * stillLooks_, kMostStillLooks) : stillLooks_;
    return true;
}

void HandoverBackend::watchMicrophone() {
    if (isLost_.load()) {
        return;  // what comes of it is told when it is opened anew
    }
    noteHearing();
    wasStill_ = !hears();
    isOutdated_ = isToListenAgain() || isOutdated_;
}

void HandoverBackend::listenAgain() {
    if (isToListenAgain()) {
        listen(false);
        listen(true);
    }
    noteHearing();
}

void HandoverBackend::tellHearing(bool isHearing) {
    if (toldHearing_ != isHearing) {
        toldHearing_ = isHearing;
        tellRouteChange(isHearing ? AVAudioSessionRouteChangeReasonNewDeviceAvailable
                                  : AVAudioSessionRouteChangeReasonOldDeviceUnavailable);
    }
}

void HandoverBackend::followPlace() {
    const HeardPlace now = device_->device->place();
    const auto hasChanged = [](HeardEnd& before, const HeardEnd& end) {
        const bool isAnother = before.isKnown() && end.isKnown() && before != end;
        before = end.isKnown() ? end : before;
        return isAnother;
    };
    const bool hasMoved = hasChanged(place_.speakers, now.speakers);
    const bool hearsAnother = hasChanged(place_.microphone, now.microphone);
    if (!device_->device->isHearing()) {
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
    // The speakers are not cut for one that the program has chosen: the server converts.
    const bool isChosen = deviceWish_.isToPlay && !deviceWish_.microphone.empty();
    const bool hasOtherChannels = !isChosen && now.microphone.isKnown() &&
                                  now.microphone.channels != heardFormat_.inputChannels;
    return hasOtherRate || hasOtherChannels;
}

}  // namespace tqplatform
