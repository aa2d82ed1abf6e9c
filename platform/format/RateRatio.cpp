#include "format/RateRatio.h"

#include <cmath>
#include <utility>

namespace tqplatform {

RateRatio RateRatio::of(double inputRate, double outputRate) noexcept {
    // Continued fraction of the larger rate over the smaller, up to the last convergent whose
    // terms still fit.
    const bool down = inputRate >= outputRate;
    const double target = down ? inputRate / outputRate : outputRate / inputRate;
    double rest = target;
    std::int64_t above = 1, aboveBefore = 0;
    std::int64_t below = 0, belowBefore = 1;
    while (true) {
        const double whole = std::floor(rest);
        if (whole > static_cast<double>(kMaximumTerm)) {
            break;
        }
        const auto term = static_cast<std::int64_t>(whole);
        const std::int64_t nextAbove = term * above + aboveBefore;
        const std::int64_t nextBelow = term * below + belowBefore;
        if (nextAbove > kMaximumTerm) {
            break;
        }
        aboveBefore = std::exchange(above, nextAbove);
        belowBefore = std::exchange(below, nextBelow);
        // Close enough that only the rounding of the doubles is left: further terms are noise.
        const double reached = static_cast<double>(above) / static_cast<double>(below);
        if (std::fabs(reached - target) <= target * 1e-15 || rest == whole) {
            break;
        }
        rest = 1.0 / (rest - whole);
    }
    if (below == 0) {
        // Beyond all terms: as far apart as can be said.
        above = kMaximumTerm;
        below = 1;
    }
    return down ? RateRatio{above, below} : RateRatio{below, above};
}

}  // namespace tqplatform
