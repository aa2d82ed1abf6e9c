#include "device/handover/RequestWatch.h"

#include <algorithm>

#include "device/handover/Looks.h"

namespace tqplatform {

namespace {

/// Looks without a request after which the clock drives until the next one: a second. Not before a
/// sink that sleeps had its time to wake: what was rendered meanwhile would not be heard.
constexpr int kQuietLooks = 4;
/// The longest after which one that is opened anew in hope counts as gone: five minutes.
constexpr int kLongestHope = 1200;

}  // namespace

void RequestWatch::restart() noexcept {
    RequestWatch next;
    if (isInHope()) {
        next.isInHope_ = next.standsStill_ = true;
        next.mostQuietLooks_ =
            isGone_ ? std::min(2 * mostQuietLooks_, kLongestHope) : mostQuietLooks_;
    }
    *this = next;
}

RequestWatch::Seen RequestWatch::look(std::uint64_t requests, bool isInside,
                                      bool isToPlay) noexcept {
    // One that the program holds is the program's doing: the device asks again behind it.
    const bool isFilling = isInHope_ && looks_ == 0;
    const bool hasAsked = (requests != seen_ && !isFilling) || isInside;
    if (hasAsked) {
        isInHope_ = false;
        mostQuietLooks_ = kMostQuietLooks;
    }
    quietLooks_ = hasAsked ? 0 : quietLooks_ + 1;
    seen_ = requests;
    Seen now;
    const bool isQuiet = quietLooks_ >= kQuietLooks;
    // Of a microphone alone it is told that nothing is heard.
    now.isNews = isToPlay && isQuiet != standsStill_ && (isQuiet || hasAsked);
    standsStill_ = now.isNews ? isQuiet : standsStill_;
    now.standsStill = standsStill_;
    isGone_ = now.isGone = isToPlay && quietLooks_ >= mostQuietLooks_;
    ++looks_;
    now.isQuiet = !isGone_ && (isInHope_ || (isQuiet && looks_ > kWakingLooks));
    return now;
}

}  // namespace tqplatform
