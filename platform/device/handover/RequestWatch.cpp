#include "device/handover/RequestWatch.h"

#include "device/handover/Looks.h"

namespace tqplatform {

namespace {

/// Looks without a request after which the clock drives until the next one: a second. Not before a
/// sink that sleeps had its time to wake: what was rendered meanwhile would not be heard.
constexpr int kQuietLooks = 4;
/// The same after which the device counts as gone: ten seconds.
constexpr int kMostQuietLooks = 40;

}  // namespace

RequestWatch::Seen RequestWatch::look(std::uint64_t requests, bool isInside,
                                      bool isToPlay) noexcept {
    // One that the program holds is the program's doing: the device asks again behind it.
    const bool hasAsked = requests != seen_ || isInside;
    quietLooks_ = hasAsked ? 0 : quietLooks_ + 1;
    seen_ = requests;
    Seen now;
    const bool isQuiet = quietLooks_ >= kQuietLooks;
    // Of a microphone alone it is told that nothing is heard.
    now.isNews = isToPlay && isQuiet != standsStill_ && (isQuiet || hasAsked);
    standsStill_ = now.isNews ? isQuiet : standsStill_;
    now.standsStill = standsStill_;
    now.isGone = isToPlay && quietLooks_ >= kMostQuietLooks;
    now.isQuiet = !now.isGone && ++looks_ > kWakingLooks && isQuiet;
    return now;
}

}  // namespace tqplatform
