#include "device/handover/CareNotices.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "device/DeviceNotices.h"
#include "device/handover/ForkedChild.h"

namespace tqplatform {

namespace {

template <class Tell>
void asParent(const Tell& tell) noexcept {
    const pid_t parent = getpid();
    tell();
    if (getpid() != parent) {
        restInChild();
    }
}

}  // namespace

void CareNotices::route(AVAudioSessionRouteChangeReason reason) const noexcept {
    asParent([=] { tellRouteChange(reason); });
}

void CareNotices::interrupt(AVAudioSessionInterruptionReason reason) noexcept {
    if (!std::exchange(isInterrupted_, true)) {
        asParent([=] { tellInterruptionBegan(reason); });
    }
}

void CareNotices::endInterruption() noexcept {
    isInterrupted_ = false;
    asParent([] { tellInterruptionEnded(); });
}

void CareNotices::sayThatItCannotPlay() noexcept {
    if (!std::exchange(saidThatItCannot_, true)) {
        say("what answers cannot play, using null until it can");
    }
}

void CareNotices::sayThatThereIsNone() const noexcept {
    say("no sound server or card answers, using null");
}

void CareNotices::say(const char* what) const noexcept {
    std::fprintf(stderr, "TQ_AUDIO_DEVICE=%s: %s\n", device_.c_str(), what);
}

}  // namespace tqplatform
