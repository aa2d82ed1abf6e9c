#pragma once

#include <cstdint>

namespace tqplatform {

/// When the periods of a device without hardware begin. Every deadline is computed from the
/// origin in whole numbers, so rounding never adds up, however long it runs.
/// [any thread, one at a time] [real-time safe]
class PeriodClock {
  public:
    /// Periods of `frames` at `rate` frames a second, both above 0.
    PeriodClock(std::uint64_t rate, std::uint64_t frames) noexcept;

    /// The first period begins at `nowNs`.
    void start(std::uint64_t nowNs) noexcept;
    /// When the current period is due to be rendered, in ns.
    [[nodiscard]] std::uint64_t deadlineNs() const noexcept;
    /// When the current period is heard, in ns: one period after its deadline.
    [[nodiscard]] std::uint64_t playTimeNs() const noexcept;
    /// Goes on to the next period. One that is late by up to kMaximumLatenessNs stays due, so a
    /// short stall is made up for; after a longer one the periods that were missed are skipped
    /// and the origin moves on by them.
    void advance(std::uint64_t nowNs) noexcept;

    static constexpr std::uint64_t kMaximumLatenessNs = 200'000'000;

  private:
    [[nodiscard]] std::uint64_t offsetNs(std::uint64_t period) const noexcept;

    // The length of a period as a reduced fraction of ns.
    std::uint64_t numerator_;
    std::uint64_t denominator_;
    std::uint64_t originNs_ = 0;
    std::uint64_t period_ = 0;
};

}  // namespace tqplatform
