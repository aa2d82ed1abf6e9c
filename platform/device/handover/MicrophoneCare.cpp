#include "device/handover/MicrophoneCare.h"

#include <algorithm>
#include <utility>

namespace tqplatform {

namespace {

/// Looks after which a microphone that is wanted and not open is tried again: half a second.
constexpr int kDeafLooks = 2;
/// The same of one that is open and brings nothing: three seconds at first, and twice as long each
/// time, up to half a minute. Desktops show each time that somebody begins to listen.
constexpr int kMostStillLooks = 120;

}  // namespace

void MicrophoneCare::restart() noexcept {
    isListening_ = false;
    deafLooks_ = 0;
}

void MicrophoneCare::opened(const MicrophoneSeen& seen) noexcept {
    wasStill_ = wasStill_ && seen.isAlone;
    isTold_ = isDeafAlone_ || wasStill_ ? isTold_ : seen.isHeard;
}

void MicrophoneCare::looked(bool isWanted, bool isHeard, bool isThere) noexcept {
    isDeafAlone_ = isWanted && !isThere && !isHeard;
    // What is away is no longer still, and is heard as soon as it is back.
    wasStill_ = wasStill_ && isWanted && isThere;
    isTold_ = isTold_ && isWanted;
}

bool MicrophoneCare::isToSwitch(bool isListening) noexcept {
    return std::exchange(isListening_, isListening) != isListening;
}

void MicrophoneCare::switched(const MicrophoneSeen& seen) noexcept {
    isTold_ = wasStill_ ? isTold_ : seen.isHeard;
}

bool MicrophoneCare::chosen(const MicrophoneSeen& seen) noexcept {
    deafLooks_ = 0;
    stillLooks_ = kWakingLooks;
    return isListening_ && isTold_ && seen.isHeard;
}

bool MicrophoneCare::awaitsFirstBlock(const MicrophoneSeen& seen) const noexcept {
    return wasStill_ && seen.isAlone && !seen.hasAsked;
}

bool MicrophoneCare::hears(const MicrophoneSeen& seen) const noexcept {
    return seen.isHeard && !awaitsFirstBlock(seen);
}

bool MicrophoneCare::isToTryAgain(const MicrophoneSeen& seen) noexcept {
    if (hears(seen)) {
        wasStill_ = false;
        deafLooks_ = 0;
        stillLooks_ = kWakingLooks;
        return false;
    }
    wasStill_ = seen.isAlone;
    const bool isStill = seen.isStill || awaitsFirstBlock(seen);
    if (++deafLooks_ < (isStill ? stillLooks_ : kDeafLooks)) {
        return false;
    }
    deafLooks_ = 0;
    stillLooks_ = isStill ? std::min(2 * stillLooks_, kMostStillLooks) : stillLooks_;
    return true;
}

std::optional<bool> MicrophoneCare::news(bool isHearing) noexcept {
    return std::exchange(isTold_, isHearing) == isHearing ? std::nullopt : std::optional(isHearing);
}

}  // namespace tqplatform
