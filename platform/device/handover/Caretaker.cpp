#include "device/handover/Caretaker.h"

#include <pthread.h>

#include <chrono>
#include <utility>

#include "device/handover/Looks.h"
#include "device/handover/OrNothing.h"

namespace tqplatform {

namespace {

constexpr std::chrono::milliseconds kRetryStep{500};

}  // namespace

Caretaker::Caretaker(HeardMaker make, SleepWatchMaker watchSleep, HeardHost& host, Driving& driving,
                     CareRequests& requests, CareNotices& notices)
    : driving_(driving),
      requests_(requests),
      notices_(notices),
      keeper_(std::move(make), host, driving, requests,
              [this](bool standsStill) { return lookMeanwhile(standsStill); }),
      sleep_(std::move(watchSleep)) {
}

void Caretaker::run() noexcept {
    pthread_setname_np(pthread_self(), "TQAudioHandover");
    while (!requests_.isEnding()) {
        const std::uint64_t request = requests_.last();
        orNothing([&] { return look(); });
        requests_.answer(request);
        await(request);
    }
    while (!orNothing([&] { return close(false); })) {
    }
}

void Caretaker::await(std::uint64_t request) noexcept {
    if (keeper_.isOpen()) {
        if (!requests_.await(request, true, kLookStep)) {
            orNothing([&] { return watch(); });
        }
    } else if (notices_.isInterrupted() ||
               (requests_.wants().bits() != 0 && requests_.hasBeenThere())) {
        // A program that was told that it is interrupted waits for the end, also when it has
        // stopped its units for that. One that is lost while it is opened is tried again in time,
        // not at once.
        requests_.await(request, false, kRetryStep);
    } else {
        requests_.await(request, false, std::nullopt);
    }
}

void Caretaker::look() {
    const CareRequests::Asked asked = requests_.take();
    const bool plays = keeper_.isUp() && keeper_.wish().isToPlay && !requests_.isLost();
    const HeardWish wish = wishOf(asked.wish, asked.wants, plays);
    const bool isWanted = asked.isWanted();
    const bool isListening = asked.wants.hearing;
    if (isWanted || notices_.isInterrupted()) {
        heedSleep();
    }
    const bool isToRun = isWanted && !sleep_.isAsleep();
    const bool isOpen = keeper_.isOpen();
    if (isOpen) {
        keeper_.preferLength(wish.seconds);
    }
    const OpeningFacts before{
        .isHeard = asked.wants.heard,
        .isOtherMicrophone = isOpen && isListening && wish.microphone != keeper_.wish().microphone,
        .hasOtherLength = isOpen && wish.seconds != keeper_.wish().seconds,
        .wasLost = requests_.isLost(),
        .wasStill = requestWatch_.standsStill(),
        .isInHope = requestWatch_.isInHope(),
        .wasOutdated = keeper_.takeOutdated(),
        .heardAlone = isOpen && isListening && !keeper_.wish().isToPlay,
        .wasDeaf = microphone_.isDeafAlone()};
    if (!closeUnfit(wish, isToRun, before)) {
        return;
    }
    bool isThere = true;
    OpeningNotice notice = OpeningNotice::nothing;
    if (isToRun && !keeper_.isOpen()) {
        // It may have fallen asleep while the device before was closed.
        if (!sleep_.isAsleep()) {
            const OpeningFacts facts = open(before, wish);
            isThere = facts.isThere;
            // One that it has fallen asleep beside is closed with the next look.
            notice = sleep_.isAsleep() ? OpeningNotice::nothing : noticeOf(facts);
        }
    } else if (asked.meets && !asked.isRefused && !requests_.hasBeenThere()) {
        isThere = meet(wish);
        if (isThere) {
            tellNews();  // who came too late to be answered has read another
        }
    } else if (asked.awaitsRate && !isWanted && requests_.hasBeenThere() &&
               wish.sampleRate != keeper_.takenRate() && !keeper_.tryRate(wish)) {
        refuseRate(wish.sampleRate);
    }
    microphone_.looked(isListening, asked.wants.heard, isThere);
    if (keeper_.isOpen()) {
        listen(wish, isListening);
    }
    isHearing_.store(microphone_.hears(keeper_.microphone()));
    tell(notice);  // not before: who is told reads whether a microphone is open
    endInterruption(wish, isWanted);
    if (asked.isFormatLate) {
        tellNews();
    }
    if (!isWanted && !notices_.isInterrupted()) {
        // Nobody delays the machine's sleep who has nothing to stop.
        sleep_.end();
    }
    if (!isThere) {
        requests_.giveUp();
    }
}

bool Caretaker::closeUnfit(const HeardWish& wish, bool isToRun, const OpeningFacts& before) {
    const bool isStale = before.wasLost || before.wasOutdated;
    if (!keeper_.isOpen() || (isToRun && !isStale && isOpenFor(keeper_.wish(), wish))) {
        return true;
    }
    if (!close(!before.wasLost, isToRun || sleep_.isAsleep())) {
        if (before.wasOutdated) {
            keeper_.outdate();
        }
        return false;
    }
    if (sleep_.isAsleep()) {
        notices_.interrupt(AVAudioSessionInterruptionReasonAppWasSuspended);
    }
    return true;
}

OpeningFacts Caretaker::open(OpeningFacts facts, const HeardWish& wish) {
    HeardWish taken = wish;
    restart();
    facts.isThere = keeper_.open(taken);
    if (facts.isThere) {
        microphone_.opened(keeper_.microphone());
        hasRun_ = hasRun_ || wish.isToPlay;
    }
    const bool isRateRefused = taken.sampleRate != wish.sampleRate;
    const bool isRefusalTold = isRateRefused && refuseRate(wish.sampleRate);
    facts.isNewFormat = facts.isThere && isNews(isRateRefused) && !isRefusalTold;
    facts.isToPlay = wish.isToPlay;
    facts.isInterrupted = notices_.isInterrupted();
    facts.awaitsFirstBlock = microphone_.wasStill();
    facts.hasRun = hasRun_;
    facts.hasBeenThere = requests_.hasBeenThere();
    return facts;
}

void Caretaker::tell(OpeningNotice notice) {
    switch (notice) {
        case OpeningNotice::nothing:
            break;
        case OpeningNotice::newFormatThenInterruptionEnds:
            notices_.route(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
            [[fallthrough]];
        case OpeningNotice::interruptionEnds:
            requestWatch_.toldThere();
            notices_.endInterruption();
            break;
        case OpeningNotice::deviceHasGone:
            notices_.route(AVAudioSessionRouteChangeReasonOldDeviceUnavailable);
            break;
        case OpeningNotice::newDevice:
        case OpeningNotice::microphoneIsThere:
            notices_.route(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
            break;
        case OpeningNotice::newFormat:
            notices_.route(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
            break;
        case OpeningNotice::newLength:
            hasNewLength_ = true;
            break;
        case OpeningNotice::microphoneIsNot:
            tellHearing(false);
            break;
        case OpeningNotice::interruption:
            notices_.interrupt(AVAudioSessionInterruptionReasonRouteDisconnected);
            break;
        case OpeningNotice::cannotPlay:
            notices_.sayThatItCannotPlay();
            break;
    }
}

bool Caretaker::meet(const HeardWish& wish) {
    restart();
    return keeper_.meet(wish);
}

void Caretaker::restart() {
    requestWatch_.restart();
    place_.restart();
    microphone_.restart();
}

void Caretaker::endInterruption(const HeardWish& wish, bool isWanted) {
    const bool isToMeet =
        notices_.isInterrupted() && !sleep_.isAsleep() && (!isWanted || microphone_.isDeafAlone());
    if (isToMeet && meet(wish)) {
        tellNews();
        notices_.endInterruption();
    }
}

bool Caretaker::isNews(bool isRateRefused) {
    if (requests_.isRateAwaited() && !isRateRefused) {
        return false;  // who set it tells it
    }
    return driving_.isNewFormat();
}

void Caretaker::tellNews() {
    if (isNews(false)) {
        notices_.route(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
    }
}

bool Caretaker::refuseRate(Float64 sampleRate) {
    using Refusal = CareRequests::Refusal;
    if (requests_.refuseRate(sampleRate, keeper_.takenRate()) != Refusal::isToBeTold) {
        return false;
    }
    // The program took it for granted.
    notices_.route(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
    requests_.refusalTold();
    return true;
}

void Caretaker::listen(const HeardWish& wish, bool isListening) {
    if (wish.microphone != keeper_.wish().microphone) {
        keeper_.choose(wish.microphone, microphone_.isListening());
        if (microphone_.chosen(keeper_.microphone())) {
            place_.move();
        }
    }
    if (microphone_.isToSwitch(isListening)) {
        keeper_.listen(isListening);
        microphone_.switched(keeper_.microphone());
    }
}

bool Caretaker::close(bool isAlive, bool isNeeded) {
    if (!keeper_.close(isAlive, isNeeded)) {
        return false;
    }
    isHearing_.store(false);
    return true;
}

void Caretaker::heedSleep() {
    while (true) {
        if (sleep_.isAsleep() && keeper_.isOpen()) {
            if (!close(false)) {
                return;  // the machine waits meanwhile
            }
            notices_.interrupt(AVAudioSessionInterruptionReasonAppWasSuspended);
        }
        if (!sleep_.take()) {
            return;
        }
    }
}

void Caretaker::forgetAfterFork() noexcept {
    keeper_.forgetAfterFork();
    sleep_.forgetAfterFork();
    requestWatch_ = {};
    microphone_ = {};
    hasRun_ = hasNewLength_ = false;
    isHearing_.store(false);
}

}  // namespace tqplatform
