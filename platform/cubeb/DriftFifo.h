#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "common/SincKernel.h"

namespace tqcubeb {

/// What a microphone hears, from its thread to the thread that plays. Both have clocks of their
/// own, which differ by some parts in a million: what is in hand is kept the same by reading a
/// little faster or slower, so that nothing is ever lost or made up. While the clocks agree samples
/// pass as they are.
///
/// Invariant: `written_ - read_` frames are in the ring, at most its size. Writer: the microphone's
/// thread, which publishes frames by releasing `written_`. Reader: the thread that plays, which
/// gives room back by releasing `read_`. Everything else is the reader's.
class DriftFifo {
  public:
    /// `inHand` frames lie between both, about what either takes at a time. Throws std::bad_alloc.
    DriftFifo(std::uint32_t channels, double sampleRate, std::uint32_t inHand);

    /// [the microphone's thread] [real-time safe] Frames of `channels` samples; what does not fit
    /// is dropped.
    void write(const float* samples, std::uint32_t frames) noexcept;
    /// [render thread] [real-time safe] The next frames; silence until there is enough in hand.
    void read(float* samples, std::uint32_t frames) noexcept;

    /// [any thread] [real-time safe] The next read() drops what is held and begins anew.
    void restart() noexcept { isToRestart_.store(true, std::memory_order_relaxed); }

    /// [render thread] How often it ran dry or full behind its start.
    [[nodiscard]] std::uint32_t faults() const noexcept { return faults_; }
    /// [render thread] Frames read for each frame that is given.
    [[nodiscard]] double ratio() const noexcept { return ratio_; }

  private:
    void steer(std::uint64_t held, std::uint32_t frames) noexcept;
    void give(float* frame) noexcept;

    const std::uint32_t channels_;
    const double sampleRate_;
    const std::uint32_t size_;  ///< frames
    std::vector<float> ring_;
    const tqcommon::SincKernel kernel_;
    std::atomic<std::uint64_t> written_{0};
    std::atomic<std::uint64_t> read_{0};
    std::atomic<bool> isToRestart_{false};  ///< set by restart(), taken by the reader

    double inHand_;             ///< when it begins to flow
    double usual_ = 0;          ///< mean in hand of the first seconds of the flow
    double mean_ = 0;           ///< the same of the last seconds
    std::uint64_t flowed_ = 0;  ///< frames
    double ratio_ = 1;
    double phase_ = 0;  ///< of the next frame, between two that were written
    bool isFlowing_ = false;
    std::uint32_t faults_ = 0;
};

}  // namespace tqcubeb
