// How HandoverBackend's caretaker opens and closes the device.

#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "device/DeviceNotices.h"
#include "device/handover/HandoverBackend.h"

namespace tqplatform {

namespace {

constexpr std::chrono::milliseconds kFirstRequestStep{1};
constexpr int kFirstRequestSteps = 1000;
constexpr std::chrono::milliseconds kLongestPlayOut{600};
/// A program's callback may hold a request for ever: what waits for its end looks at the rest
/// meanwhile.
constexpr std::chrono::milliseconds kLongestHold{500};

}  // namespace

bool HandoverBackend::openDevice(HeardWish& wish) {
    Opening opening = tryDevice(wish);
    // What it refuses may be the rate: the last one that it took, or its own.
    for (const Float64 rate : {takenRate_, 0.0}) {
        if (opening == Opening::refused && wish.sampleRate > 0 && wish.sampleRate != rate) {
            HeardWish other = wish;
            other.sampleRate = rate;
            opening = tryDevice(other);
            wish = opening == Opening::open ? other : wish;
        }
    }
    if (opening == Opening::open) {
        takenRate_ = wish.sampleRate;
    }
    return opening == Opening::open;
}

std::shared_ptr<HandoverBackend::Kept> HandoverBackend::reachDevice(const HeardWish& wish) {
    isLost_.store(false);
    seenRequests_ = 0;
    quietLooks_ = looks_ = deafLooks_ = 0;
    stoodStill_ = isMoving_ = wasHearing_ = false;
    auto kept = std::make_shared<Kept>(static_cast<HeardHost&>(*this));
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
    bool isLate = false;
    {
        std::unique_lock lock(care_.mutex);
        isLate = care_.comesLate;
        if (care_.isRefused) {
            lock.unlock();
            endDevice(kept, false);
            return nullptr;  // it came too late: programs were told that there is none
        }
    }
    // The clock keeps the device's rate, so that going over changes nothing for the units.
    static_cast<void>(clock_->preferRate(kept->format->sampleRate, true));
    for (bool isTold = false; !isTold;) {
        // Nothing renders in the device's name yet, but the clock may.
        const Turn turn(turn_, kLongestHold);
        if (turn) {
            heardFormat_ = *kept->format;
            publish(Driver::clock);
            isTold = true;
        }
    }
    if (!wasOpen_.exchange(true) && !isLate) {
        static_cast<void>(host_->isNewFormat());  // what it is like at first is no change
    }
    return kept;
}

bool HandoverBackend::meetDevice(const HeardWish& wish) {
    const std::shared_ptr<Kept> kept = reachDevice(wish);
    if (kept == nullptr) {
        return false;
    }
    endDevice(kept, false);
    return true;
}

HandoverBackend::Opening HandoverBackend::tryDevice(const HeardWish& wish) {
    const std::shared_ptr<Kept> kept = reachDevice(wish);
    if (kept == nullptr) {
        return Opening::none;
    }
    playOutAtExit();
    process_.store(getpid(), std::memory_order_relaxed);
    isOffered_.store(true, std::memory_order_release);
    device_ = kept;
    deviceWish_ = wish;
    place_ = {};
    aside(kept, [](Kept& started) {
        started.answer = orNothing([&] { return started.device->start(); });
    });
    const bool hasStarted = kept->answer;
    // What only listens need not be waited for: a source that sleeps says nothing for seconds.
    const bool hasBegun = hasStarted && (!wish.isToPlay || awaitDriving());
    if (!hasBegun || isLost_.load()) {
        const bool isRefused = !hasStarted && !isLost_.load();
        isOutdated_ = !closeDevice(false);  // at the next look, then
        return isRefused ? Opening::refused : Opening::none;
    }
    isUp_ = true;
    wasStill_ = wasStill_ && !wish.isToPlay;
    toldHearing_ = isDeafAlone_ || wasStill_ ? toldHearing_ : kept->device->isHearing();
    static_cast<void>(settleClock());
    hasRun_ = hasRun_ || wish.isToPlay;
    return Opening::open;
}

void HandoverBackend::tryRate(const HeardWish& wish) {
    const auto kept = std::make_shared<Kept>(static_cast<HeardHost&>(*this));
    aside(kept, [make = make_, wish](Kept& tried) {
        tried.device = orNothing(make);
        if (tried.device != nullptr) {
            tried.format = orNothing([&] { return tried.device->open(tried.gate, wish); });
            tried.answer = tried.format && orNothing([&] { return tried.device->accepts(); });
            tried.device.reset();
        }
    });
    isLost_.store(false);  // nothing was played on it
    if (kept->answer) {
        takenRate_ = wish.sampleRate;
    } else if (kept->format) {
        const Float64 before = takenRate_ > 0 ? takenRate_ : heardFormat_.sampleRate;
        static_cast<void>(clock_->preferRate(before, true));
        refuseRate(wish.sampleRate);
    }
}

bool HandoverBackend::isNews(bool isRateRefused) {
    {
        const std::lock_guard lock(care_.mutex);
        if (care_.awaitsRate && !isRateRefused) {
            return false;  // who set it tells it
        }
    }
    return host_->isNewFormat();
}

bool HandoverBackend::refuseRate(Float64 sampleRate) {
    bool isAwaited = false;
    {
        const std::lock_guard lock(care_.mutex);
        if (care_.wish.sampleRate != sampleRate) {
            return false;  // another is wished for by now
        }
        care_.wish.sampleRate = takenRate_;
        isAwaited = care_.awaitsRate;
        isRateRefused_.store(true);
    }
    if (!isAwaited) {
        // The program took it for granted.
        refusing_ = sampleRate;
        tellRouteChange(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
        refusing_ = 0;
    }
    return !isAwaited;
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

bool HandoverBackend::awaitDriving() {
    // A request that met one of the clock's was silence, and so would be the program's first sound.
    for (int step = 0;
         driver_.load() != Driver::device && !isLost_.load() && step < kFirstRequestSteps; ++step) {
        std::this_thread::sleep_for(kFirstRequestStep);
    }
    // A callback of the clock's request may take longer than that.
    return device_->gate.requests() != 0;
}

bool HandoverBackend::closeDevice(bool isAlive, bool isNeeded) {
    isOffered_.store(false);
    if (!driveByClock()) {
        isOffered_.store(true);
        return false;
    }
    isUp_ = false;
    if (device_ != nullptr) {
        const auto playsOut = [&](bool isIt) {
            const std::lock_guard lock(care_.mutex);
            care_.isPlayingOut = isIt;
        };
        playsOut(!isNeeded);
        const bool hasEnded = endDevice(device_, isAlive && deviceWish_.isToPlay);
        playsOut(false);
        if (!hasEnded) {
            isOffered_.store(true, std::memory_order_release);
            static_cast<void>(awaitDriving());
            static_cast<void>(settleClock());
            isUp_ = true;
            return false;
        }
        device_.reset();
    }
    // A loss that came meanwhile is that device's: the next start has lost nothing.
    isLost_.store(false);
    isHearing_.store(false);
    return true;
}

bool HandoverBackend::endDevice(const std::shared_ptr<Kept>& kept, bool isToFinish) {
    aside(kept, [isToFinish](Kept& ended) {
        ended.answer = isToFinish && ended.device->finish();
        if (!ended.answer) {
            ended.device.reset();
        }
    });
    return !kept->answer;
}

bool HandoverBackend::driveByClock() {
    {
        const Turn turn(turn_, kLongestHold);
        if (!turn) {
            return false;
        }
        if (driver_.load() == Driver::device) {
            driver_.store(Driver::clock);
            publish(Driver::clock);
        }
    }
    static_cast<void>(settleClock());
    return true;
}

}  // namespace tqplatform
