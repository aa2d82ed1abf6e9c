#include "device/handover/CareRequests.h"

#include <cstdlib>
#include <exception>
#include <utility>

#include "common/SignalsBlocked.h"
#include "device/handover/LoaderLock.h"
#include "device/handover/OrNothing.h"

namespace tqplatform {

namespace {

constexpr std::chrono::seconds kLongestWait{1};
constexpr std::chrono::milliseconds kLongestPlayOut{600};

std::atomic<CareRequests*> awaitedAtExit{nullptr};

}  // namespace

HeardWish wishOf(const HeardWish& wish, const ClientWants& wants, bool plays) {
    HeardWish whole = wish;
    whole.isToPlay = wants.heard || !wants.hearing || plays;
    return whole;
}

bool isOpenFor(const HeardWish& open, const HeardWish& wish) {
    HeardWish after = open;
    if (open.isToPlay) {
        after.microphone = wish.microphone;  // beside speakers it is exchanged alone
    }
    return after == wish;
}

CareRequests::~CareRequests() {
    CareRequests* self = this;
    awaitedAtExit.compare_exchange_strong(self, nullptr);
}

void CareRequests::end() noexcept {
    Lock lock(state_.mutex);
    if (state_.caretaker.joinable()) {
        state_.isEnding = true;
        state_.asked.notify_all();
        lock.unlock();
        state_.caretaker.join();
    }
}

void CareRequests::forgetAfterFork() noexcept {
    const HeardWish& before = state_.now.wish;
    HeardWish wish{.sampleRate = before.sampleRate, .seconds = before.seconds};
    // A name that somebody was just writing may be half a name.
    if (state_.mutex.try_lock()) {
        wish.microphone = before.microphone;
    }
    // Constructed anew over the old: the thread is not the child's.
    std::construct_at(&state_);
    state_.now.wish = std::move(wish);
    hasBeenThere_.store(false);
    isLost_.store(false);
}

// The program's.

bool CareRequests::preferRate(Float64 sampleRate, bool mayWait) noexcept {
    Lock lock(state_.mutex);
    state_.now.wish.sampleRate = sampleRate;
    state_.now.awaitsRate = mayWait && !state_.playingOut;
    isRateRefused_.store(false);
    ask(lock, state_.now.awaitsRate);
    state_.now.awaitsRate = false;
    return state_.now.wish.sampleRate == sampleRate;
}

bool CareRequests::isBeingRefused(Float64 sampleRate) noexcept {
    const Lock lock(state_.mutex);
    return std::this_thread::get_id() == state_.caretaker.get_id() && state_.refusing == sampleRate;
}

bool CareRequests::preferDuration(Float64 seconds, bool mayWait) noexcept {
    Lock lock(state_.mutex);
    state_.now.wish.seconds = seconds;
    ask(lock, mayWait && !state_.playingOut);
    return !state_.now.isRefused;
}

bool CareRequests::preferMicrophone(const std::string& name) noexcept {
    Lock lock(state_.mutex);
    state_.now.wish.microphone = name;
    ask(lock, !state_.playingOut);
    return !state_.now.isRefused;
}

void CareRequests::expect(const ClientWants& wants, bool mayWait) noexcept {
    Lock lock(state_.mutex);
    const bool isMore = (wants.bits() & ~state_.now.wants.bits()) != 0;
    state_.now.wants = wants;
    ask(lock, mayWait && isMore);
}

void CareRequests::meet() noexcept {
    Lock lock(state_.mutex);
    state_.now.meets = true;
    ask(lock, true);
}

bool CareRequests::tellLateFormat() noexcept {
    const Lock lock(state_.mutex);
    if (!state_.caretaker.joinable()) {
        return false;
    }
    state_.now.isFormatLate = true;
    ++state_.requests;
    state_.asked.notify_one();
    return true;
}

void CareRequests::ask(Lock& lock, bool mayWait) noexcept {
    const std::uint64_t mine = ++state_.requests;
    if (!state_.caretaker.joinable()) {
        // Nobody has to look after a device that nobody has asked for.
        if (state_.now.isRefused || (!state_.now.meets && state_.now.wants.bits() == 0)) {
            return;
        }
        try {
            const tqcommon::SignalsBlocked blocked;
            state_.caretaker = std::thread(care_);
        } catch (const std::exception&) {
            return;  // the clock goes on; the next who asks tries again
        }
    }
    state_.asked.notify_one();
    // A handler of a notice may start a unit: it is called by the thread that would open the
    // device.
    if (mayWait && std::this_thread::get_id() != state_.caretaker.get_id()) {
        const bool isAnswered = state_.done.wait_for(
            lock, kLongestWait, [&] { return state_.answered >= mine || state_.isHeldUp; });
        if (!isAnswered && !hasBeenThere()) {
            refuse(lock, mine);
        }
    }
}

void CareRequests::refuse(Lock& lock, std::uint64_t request) noexcept {
    lock.unlock();
    const bool isCallersDoing = orNothing(isLoaderHeld);
    lock.lock();
    const bool isAnswered = state_.answered >= request || state_.isHeldUp;
    if (hasBeenThere() || state_.now.isRefused || isAnswered) {
        return;
    }
    if (isCallersDoing) {
        state_.comesLate = true;
        return;
    }
    state_.now.isRefused = true;
    lock.unlock();
    notices_.sayThatThereIsNone();
    lock.lock();
}

// The device's.

void CareRequests::lose() noexcept {
    const Lock lock(state_.mutex);
    isLost_.store(true);
    state_.asked.notify_one();
}

bool CareRequests::isWantedAgain() noexcept {
    const Lock lock(state_.mutex);
    const Asked& now = state_.now;
    return orNothing([&] {
        return state_.playingOut && now.wants.bits() != 0 &&
               isOpenFor(*state_.playingOut, wishOf(now.wish, now.wants, false));
    });
}

// The caretaker's.

bool CareRequests::isEnding() noexcept {
    const Lock lock(state_.mutex);
    return state_.isEnding;
}

std::uint64_t CareRequests::last() noexcept {
    const Lock lock(state_.mutex);
    return state_.requests;
}

CareRequests::Asked CareRequests::take() {
    const Lock lock(state_.mutex);
    Asked asked = state_.now;
    state_.now.isFormatLate = false;
    return asked;
}

void CareRequests::answer(std::uint64_t request) noexcept {
    const Lock lock(state_.mutex);
    state_.answered = request;
    state_.done.notify_all();
}

bool CareRequests::await(std::uint64_t request, bool isLossNews,
                         std::optional<std::chrono::milliseconds> longest) noexcept {
    Lock lock(state_.mutex);
    const auto isNews = [&] {
        return state_.isEnding || state_.requests != request || (isLossNews && isLost());
    };
    if (longest) {
        return state_.asked.wait_for(lock, *longest, isNews);
    }
    state_.asked.wait(lock, isNews);
    return true;
}

void CareRequests::holdUp(bool isHeldUp) noexcept {
    const Lock lock(state_.mutex);
    state_.isHeldUp = isHeldUp;
    state_.done.notify_all();
}

void CareRequests::playOut(std::optional<HeardWish> open) noexcept {
    const Lock lock(state_.mutex);
    state_.playingOut = std::move(open);
}

ClientWants CareRequests::wants() noexcept {
    const Lock lock(state_.mutex);
    return state_.now.wants;
}

bool CareRequests::isToPlay() noexcept {
    const Lock lock(state_.mutex);
    return state_.now.wants.heard && !state_.now.isRefused;
}

bool CareRequests::isRateAwaited() noexcept {
    const Lock lock(state_.mutex);
    return state_.now.awaitsRate;
}

CareRequests::Refusal CareRequests::refuseRate(Float64 sampleRate, Float64 taken) noexcept {
    const Lock lock(state_.mutex);
    if (state_.now.wish.sampleRate != sampleRate) {
        return Refusal::isOutdated;  // another is wished for by now
    }
    state_.now.wish.sampleRate = taken;
    isRateRefused_.store(true);
    if (state_.now.awaitsRate) {
        return Refusal::isAnswered;
    }
    state_.refusing = sampleRate;
    return Refusal::isToBeTold;
}

void CareRequests::refusalTold() noexcept {
    const Lock lock(state_.mutex);
    state_.refusing = 0;
}

CareRequests::Welcome CareRequests::welcome() noexcept {
    const Lock lock(state_.mutex);
    if (state_.now.isRefused) {
        return Welcome::refused;
    }
    return state_.comesLate ? Welcome::late : Welcome::inTime;
}

void CareRequests::giveUp() noexcept {
    {
        const Lock lock(state_.mutex);
        if (hasBeenThere() || std::exchange(state_.now.isRefused, true)) {
            return;
        }
    }
    notices_.sayThatThereIsNone();
}

void CareRequests::awaitAtExit() noexcept {
    if (awaitedAtExit.exchange(this) != nullptr) {
        return;
    }
    static_cast<void>(std::atexit([] {
        if (CareRequests* const self = awaitedAtExit.load()) {
            Lock lock(self->state_.mutex);
            self->state_.done.wait_for(lock, kLongestPlayOut, [&] {
                return self->state_.answered == self->state_.requests;
            });
        }
    }));
}

}  // namespace tqplatform
