#include "device/handover/DeviceKeeper.h"

#include <chrono>
#include <thread>
#include <utility>

#include "device/handover/Looks.h"
#include "device/handover/OrNothing.h"

namespace tqplatform {

namespace {

/// What the server answers so soon is no reason to look after anything else: a second.
constexpr int kPatientLooks = 4;
constexpr std::chrono::milliseconds kFirstRequestStep{1};
constexpr int kFirstRequestSteps = 1000;

}  // namespace

DeviceKeeper::DeviceKeeper(HeardMaker make, HeardHost& host, Driving& driving,
                           CareRequests& requests, Meanwhile meanwhile)
    : make_(std::move(make)),
      host_(host),
      driving_(driving),
      requests_(requests),
      meanwhile_(std::move(meanwhile)) {
}

void DeviceKeeper::aside(const std::shared_ptr<Kept>& kept, std::function<void(Kept&)> call) {
    if (beside_ == nullptr) {
        beside_ = std::make_unique<HeardThread>();
    }
    beside_->begin([kept, call = std::move(call)] { call(*kept); });
    for (int step = 1; !beside_->await(kLookStep); ++step) {
        // The first who asks waits his time; those behind him know better.
        requests_.holdUp(step > kPatientLooks);
        if (step >= kPatientLooks && !meanwhile_(step > kWakingLooks)) {
            kept->gate.close();
            device_.reset();
            beside_.reset();
            throw Ended();
        }
    }
    requests_.holdUp(false);
}

// Opening.

bool DeviceKeeper::open(HeardWish& wish) {
    Opening opening = tryToOpen(wish);
    // What it refuses may be the rate: the last one that it took, or its own.
    for (const Float64 rate : {takenRate_, 0.0}) {
        if (opening == Opening::refused && wish.sampleRate > 0 && wish.sampleRate != rate) {
            HeardWish other = wish;
            other.sampleRate = rate;
            opening = tryToOpen(other);
            wish = opening == Opening::open ? other : wish;
        }
    }
    if (opening == Opening::open) {
        takenRate_ = wish.sampleRate;
    }
    return opening == Opening::open;
}

std::shared_ptr<DeviceKeeper::Kept> DeviceKeeper::reach(const HeardWish& wish) {
    requests_.forgetLoss();
    auto kept = std::make_shared<Kept>(host_);
    aside(kept, [make = make_, wish](Kept& reached) {
        reached.device = orNothing(make);
        if (reached.device != nullptr) {
            reached.format = orNothing([&] { return reached.device->open(reached.gate, wish); });
        }
        if (!reached.format) {
            reached.device.reset();
        }
    });
    if (!kept->format) {
        return nullptr;
    }
    const CareRequests::Welcome welcome = requests_.welcome();
    if (welcome == CareRequests::Welcome::refused) {
        end(kept, false);
        return nullptr;  // it came too late: programs were told that there is none
    }
    driving_.adopt(*kept->format);
    if (requests_.noteThere() && welcome == CareRequests::Welcome::inTime) {
        static_cast<void>(driving_.isNewFormat());  // what it is like at first is no change
    }
    return kept;
}

bool DeviceKeeper::meet(const HeardWish& wish) {
    const std::shared_ptr<Kept> kept = reach(wish);
    if (kept == nullptr) {
        return false;
    }
    end(kept, false);
    return true;
}

DeviceKeeper::Opening DeviceKeeper::tryToOpen(const HeardWish& wish) {
    const std::shared_ptr<Kept> kept = reach(wish);
    if (kept == nullptr) {
        return Opening::none;
    }
    requests_.awaitAtExit();
    driving_.offer();
    device_ = kept;
    wish_ = wish;
    aside(kept, [](Kept& started) {
        started.answer = orNothing([&] { return started.device->start(); });
    });
    const bool hasStarted = kept->answer;
    // What only listens need not be waited for: a source that sleeps says nothing for seconds.
    const bool hasBegun = hasStarted && (!wish.isToPlay || awaitDriving());
    if (!hasBegun || requests_.isLost()) {
        const bool isRefused = !hasStarted && !requests_.isLost();
        isOutdated_ = !close(false);  // at the next look, then
        return isRefused ? Opening::refused : Opening::none;
    }
    isUp_ = true;
    static_cast<void>(driving_.settleClock());
    return Opening::open;
}

bool DeviceKeeper::tryRate(const HeardWish& wish) {
    const auto kept = std::make_shared<Kept>(host_);
    aside(kept, [make = make_, wish](Kept& tried) {
        tried.device = orNothing(make);
        if (tried.device != nullptr) {
            tried.format = orNothing([&] { return tried.device->open(tried.gate, wish); });
            tried.answer = tried.format && orNothing([&] { return tried.device->accepts(); });
            tried.device.reset();
        }
    });
    requests_.forgetLoss();  // nothing was played on it
    if (kept->answer) {
        takenRate_ = wish.sampleRate;
        return true;
    }
    if (!kept->format) {
        return true;  // nobody is there to refuse it
    }
    const Float64 before = takenRate_ > 0 ? takenRate_ : driving_.heardFormat().sampleRate;
    static_cast<void>(driving_.clock().preferRate(before, true));
    return false;
}

bool DeviceKeeper::awaitDriving() {
    // A request that met one of the clock's was silence, and so would be the program's first sound.
    for (int step = 0; driving_.isByClock() && !requests_.isLost() && step < kFirstRequestSteps;
         ++step) {
        std::this_thread::sleep_for(kFirstRequestStep);
    }
    // A callback of the clock's request may take longer than that.
    return device_->gate.requests() != 0;
}

// Closing.

bool DeviceKeeper::close(bool isAlive, bool isNeeded) {
    if (!driving_.withdraw()) {
        return false;
    }
    isUp_ = false;
    if (device_ != nullptr) {
        requests_.playOut(isNeeded ? std::nullopt : std::optional(wish_));
        const bool hasEnded = end(device_, isAlive && wish_.isToPlay);
        requests_.playOut(std::nullopt);
        if (!hasEnded) {
            driving_.offer();
            awaitDriving();
            static_cast<void>(driving_.settleClock());
            isUp_ = true;
            return false;
        }
        device_.reset();
    }
    // A loss that came meanwhile is that device's: the next start has lost nothing.
    requests_.forgetLoss();
    return true;
}

bool DeviceKeeper::end(const std::shared_ptr<Kept>& kept, bool isToFinish) {
    aside(kept, [isToFinish](Kept& ended) {
        ended.answer = isToFinish && ended.device->finish();
        if (!ended.answer) {
            ended.device.reset();
        }
    });
    return !kept->answer;
}

bool DeviceKeeper::takeOutdated() noexcept {
    return std::exchange(isOutdated_, false);
}

// While it is open.

MicrophoneSeen DeviceKeeper::microphone() const {
    if (device_ == nullptr) {
        return {};
    }
    const HeardDevice& device = *device_->device;
    return {.isAlone = !wish_.isToPlay,
            .isHeard = device.isHearing(),
            .isStill = device.isStill(),
            .hasAsked = device_->gate.requests() != 0};
}

void DeviceKeeper::preferLength(Float64 seconds) {
    if (seconds != wish_.seconds && device_->device->hasLengthOf(seconds)) {
        wish_.seconds = seconds;
    }
}

void DeviceKeeper::listen(bool isListening) {
    aside(device_, [isListening](Kept& kept) {
        kept.answer = orNothing([&] { return kept.device->hear(isListening); });
    });
    isOutdated_ = isOutdated_ || !device_->answer;
}

void DeviceKeeper::choose(const std::string& microphone, bool isListening) {
    aside(device_, [microphone, isListening](Kept& kept) {
        kept.answer = orNothing([&] {
            const bool isClosed = kept.device->hear(false);
            kept.device->choose(microphone);
            return isClosed && (!isListening || kept.device->hear(true));
        });
    });
    isOutdated_ = isOutdated_ || !device_->answer;
    wish_.microphone = microphone;
}

void DeviceKeeper::forgetAfterFork() noexcept {
    // Constructed anew over the old: neither thread nor the server's connection is the child's.
    std::construct_at(&device_);
    static_cast<void>(beside_.release());
    std::construct_at(&wish_);
    isUp_ = isOutdated_ = false;
    takenRate_ = 0;
}

}  // namespace tqplatform
