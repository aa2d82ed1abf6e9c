// What the caretaker sees of a device without being asked.

#include <utility>

#include "device/handover/Caretaker.h"

namespace tqplatform {

void Caretaker::watch() {
    watchRequests();
    sleep_.begin();  // not before the first block
    if (std::exchange(hasNewLength_, false)) {
        notices_.route(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
    }
    if (!keeper_.wish().isToPlay) {
        watchMicrophoneAlone();
    } else if (requests_.wants().hearing && requestWatch_.asks()) {
        watchMicrophoneBeside();
    }
    watchPlace();
}

bool Caretaker::lookMeanwhile(bool standsStill) {
    if (requests_.isEnding()) {
        return false;
    }
    while (sleep_.take()) {
    }
    if (keeper_.isUp()) {
        watchRequests();
    } else if (requests_.isToPlay() && hasRun_ && (standsStill || sleep_.isAsleep())) {
        notices_.interrupt(sleep_.isAsleep() ? AVAudioSessionInterruptionReasonAppWasSuspended
                                             : AVAudioSessionInterruptionReasonRouteDisconnected);
    }
    return true;
}

void Caretaker::watchRequests() {
    const HeardGate& gate = keeper_.gate();
    const RequestWatch::Seen seen =
        requestWatch_.look(gate.requests(), gate.isInside(), keeper_.wish().isToPlay);
    if (seen.isNews) {
        notices_.route(seen.standsStill ? AVAudioSessionRouteChangeReasonOldDeviceUnavailable
                                        : AVAudioSessionRouteChangeReasonNewDeviceAvailable);
    }
    if (seen.isGone) {
        requests_.lose();
    } else if (seen.isQuiet) {
        static_cast<void>(driving_.driveByClock());
    }
    // The device may have taken over again meanwhile.
    static_cast<void>(driving_.settleClock());
}

void Caretaker::watchMicrophoneAlone() {
    if (requests_.isLost()) {
        return;  // what comes of it is told when it is opened anew
    }
    const MicrophoneSeen seen = keeper_.microphone();
    noteHearing(seen);
    if (microphone_.isToTryAgain(seen)) {
        keeper_.outdate();
    }
}

void Caretaker::watchMicrophoneBeside() {
    if (microphone_.isToTryAgain(keeper_.microphone())) {
        keeper_.listen(false);
        keeper_.listen(true);
    }
    noteHearing(keeper_.microphone());
}

void Caretaker::noteHearing(const MicrophoneSeen& seen) {
    const bool hears = microphone_.hears(seen);
    isHearing_.store(hears);
    tellHearing(hears);
}

void Caretaker::tellHearing(bool isHearing) {
    if (const std::optional<bool> news = microphone_.news(isHearing)) {
        notices_.route(*news ? AVAudioSessionRouteChangeReasonNewDeviceAvailable
                             : AVAudioSessionRouteChangeReasonOldDeviceUnavailable);
    }
}

void Caretaker::watchPlace() {
    const HeardPlace now = keeper_.place();
    const bool hasSettled = place_.hasSettled(now, keeper_.microphone().isHeard);
    if (!hasSettled || keeper_.isOutdated()) {
        return;
    }
    if (PlaceWatch::isStale(now, keeper_.wish(), driving_.heardFormat())) {
        keeper_.outdate();  // and is told when it is open
    } else {
        notices_.route(AVAudioSessionRouteChangeReasonNewDeviceAvailable);
    }
}

}  // namespace tqplatform
