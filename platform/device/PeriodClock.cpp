#include "device/PeriodClock.h"

#include <numeric>

namespace tqplatform {

namespace {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

}  // namespace

PeriodClock::PeriodClock(std::uint64_t rate, std::uint64_t frames) noexcept {
    const std::uint64_t divisor = std::gcd(frames * kNsPerSecond, rate);
    numerator_ = frames * kNsPerSecond / divisor;
    denominator_ = rate / divisor;
}

void PeriodClock::start(std::uint64_t nowNs) noexcept {
    originNs_ = nowNs;
    period_ = 0;
}

std::uint64_t PeriodClock::deadlineNs() const noexcept {
    return originNs_ + offsetNs(period_);
}

std::uint64_t PeriodClock::playTimeNs() const noexcept {
    return originNs_ + offsetNs(period_ + 1);
}

void PeriodClock::advance(std::uint64_t nowNs) noexcept {
    ++period_;
    if (period_ == denominator_) {
        // This many periods are a whole number of ns: starting over from here is exact and keeps
        // the products small.
        originNs_ += numerator_;
        period_ = 0;
    }
    const std::uint64_t due = deadlineNs();
    if (nowNs > due + kMaximumLatenessNs) {
        const std::uint64_t missed = (nowNs - due) * denominator_ / numerator_;
        originNs_ += offsetNs(missed);
    }
}

std::uint64_t PeriodClock::offsetNs(std::uint64_t period) const noexcept {
    return period * numerator_ / denominator_;
}

}  // namespace tqplatform
