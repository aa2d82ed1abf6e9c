#include "device/handover/PlaceWatch.h"

#include <utility>

namespace tqplatform {

namespace {

bool hasChanged(HeardEnd& before, const HeardEnd& end) {
    const bool isAnother = before.isKnown() && end.isKnown() && before != end;
    before = end.isKnown() ? end : before;
    return isAnother;
}

}  // namespace

bool PlaceWatch::hasSettled(const HeardPlace& now, bool isHearing) {
    const bool hasMoved = hasChanged(known_.speakers, now.speakers);
    const bool hearsAnother = hasChanged(known_.microphone, now.microphone);
    if (!isHearing) {
        known_.microphone = {};  // that it is heard again is told as such
    }
    const bool wasMoving = std::exchange(isMoving_, hasMoved || hearsAnother);
    return wasMoving && !isMoving_;
}

bool PlaceWatch::isStale(const HeardPlace& now, const HeardWish& wish,
                         const DeviceFormat& format) noexcept {
    // What is played elsewhere than on the default would be opened with the default's rate.
    const bool hasOtherRate = wish.isToPlay && wish.sampleRate <= 0 && now.speakers.isDefault &&
                              now.speakers.sampleRate != format.sampleRate;
    // The speakers are not cut for one that the program has chosen: the server converts.
    const bool isChosen = wish.isToPlay && !wish.microphone.empty();
    const bool hasOtherChannels =
        !isChosen && now.microphone.isKnown() && now.microphone.channels != format.inputChannels;
    return hasOtherRate || hasOtherChannels;
}

}  // namespace tqplatform
