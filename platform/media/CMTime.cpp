#include <CoreMedia/CMTime.h>

#include <algorithm>
#include <limits>
#include <numeric>

#include "media/MediaTime.h"

const CMTime kCMTimeInvalid = {0, 0, 0, 0};
const CMTime kCMTimeZero = {0, 1, kCMTimeFlags_Valid, 0};
const CMTime kCMTimePositiveInfinity = {0, 0, kCMTimeFlags_Valid | kCMTimeFlags_PositiveInfinity,
                                        0};
const CMTime kCMTimeNegativeInfinity = {0, 0, kCMTimeFlags_Valid | kCMTimeFlags_NegativeInfinity,
                                        0};
const CMTime kCMTimeIndefinite = {0, 0, kCMTimeFlags_Valid | kCMTimeFlags_Indefinite, 0};
const CMSampleTimingInfo kCMTimingInfoInvalid = {kCMTimeInvalid, kCMTimeInvalid, kCMTimeInvalid};

CMTime CMTimeMake(int64_t value, int32_t timescale) {
    return timescale > 0 ? CMTime{value, timescale, kCMTimeFlags_Valid, 0} : kCMTimeInvalid;
}

namespace tqplatform {
namespace {

__extension__ using Wide = __int128;

bool hasFlag(const CMTime& time, CMTimeFlags flag) {
    return (time.flags & flag) != 0;
}

CMTime timeOf(Wide value, CMTimeScale timescale, CMTimeFlags flags, CMTimeEpoch epoch) {
    if (value > std::numeric_limits<CMTimeValue>::max()) {
        return kCMTimePositiveInfinity;
    }
    if (value < std::numeric_limits<CMTimeValue>::min()) {
        return kCMTimeNegativeInfinity;
    }
    return {static_cast<CMTimeValue>(value), timescale, flags, epoch};
}

/// The value in another timescale, half away from zero; `exact` is cleared when that lost
/// something.
Wide rescaled(const CMTime& time, CMTimeScale timescale, bool& exact) {
    const Wide numerator = Wide{time.value} * timescale;
    const Wide half = time.timescale / 2;
    exact = exact && numerator % time.timescale == 0;
    return (numerator + (numerator < 0 ? -half : half)) / time.timescale;
}

CMTime sumOfNonNumeric(const CMTime& left, const CMTime& right) {
    const bool positive = hasFlag(left, kCMTimeFlags_PositiveInfinity) ||
                          hasFlag(right, kCMTimeFlags_PositiveInfinity);
    const bool negative = hasFlag(left, kCMTimeFlags_NegativeInfinity) ||
                          hasFlag(right, kCMTimeFlags_NegativeInfinity);
    if (!hasFlag(left, kCMTimeFlags_Valid) || !hasFlag(right, kCMTimeFlags_Valid) ||
        (positive && negative)) {
        return kCMTimeInvalid;
    }
    if (hasFlag(left, kCMTimeFlags_Indefinite) || hasFlag(right, kCMTimeFlags_Indefinite)) {
        return kCMTimeIndefinite;
    }
    if (positive) {
        return kCMTimePositiveInfinity;
    }
    return negative ? kCMTimeNegativeInfinity : kCMTimeInvalid;
}

}  // namespace

bool isNumeric(const CMTime& time) noexcept {
    return hasFlag(time, kCMTimeFlags_Valid) &&
           !hasFlag(time, kCMTimeFlags_ImpliedValueFlagsMask) && time.timescale > 0;
}

CMTime multiplied(const CMTime& time, CMTimeValue count) noexcept {
    if (!isNumeric(time)) {
        return time;
    }
    return timeOf(Wide{time.value} * count, time.timescale, time.flags, time.epoch);
}

CMTime added(const CMTime& left, const CMTime& right) noexcept {
    if (!isNumeric(left) || !isNumeric(right)) {
        return sumOfNonNumeric(left, right);
    }
    const auto common = std::lcm<int64_t, int64_t>(left.timescale, right.timescale);
    const CMTimeScale timescale = common <= std::numeric_limits<CMTimeScale>::max()
                                      ? static_cast<CMTimeScale>(common)
                                      : std::max<CMTimeScale>(left.timescale, right.timescale);
    bool exact = true;
    const Wide sum = rescaled(left, timescale, exact) + rescaled(right, timescale, exact);
    const CMTimeFlags rounded = exact ? 0U : kCMTimeFlags_HasBeenRounded;
    return timeOf(sum, timescale, left.flags | right.flags | rounded, left.epoch);
}

}  // namespace tqplatform
