#pragma once

#include <cstddef>
#include <cstdint>

#include "common/RealTime.h"

namespace tq::bridges {

/// What the device's thread knows when a block of a stream is due. Events come from other threads:
/// read them first and the FIFO after them, so that what was written before an event is seen.
struct PacerInput {
    std::size_t frames = 0;        ///< of the block
    std::size_t available = 0;     ///< frames that wait in the FIFO
    std::size_t silent = 0;        ///< of these, the first that are the program's own silence
    std::size_t largestPiece = 0;  ///< frames of the largest piece that the program wrote
    /// Frames from when the first of those that wait is heard to when the block is; 0 where nobody
    /// knows. Asked for while nothing plays.
    std::ptrdiff_t late = 0;
    std::uint32_t flushes = 0;  ///< how often the stream was flushed; another number is the event
    bool isFrozen = false;      ///< paused or corked
    bool isClosed = false;      ///< nothing will be written any more
};

/// What to do for a block, in this order; silence and taken frames are the block's length.
struct PacerBlock {
    std::size_t cut = 0;      ///< silent frames to drop from the front of the FIFO
    std::size_t wait = 0;     ///< frames of silence before the first that is taken
    std::size_t take = 0;     ///< frames to take out
    std::size_t silence = 0;  ///< frames of silence behind them
    bool isOver = false;      ///< after this block nothing comes any more; what waits is not played
};

/// Decides when the frames of a native stream go to the device: a stream starts a certain time
/// after it is heard, the same for all, so that they lie beside each other as they are heard and
/// there is enough to play on between two of the program's pieces. Then it runs at the device's
/// pace. Nothing is skipped but silence of the program's own, and only where the program's clock is
/// faster.
class Pacer {
  public:
    /// [any thread] Frames a second.
    explicit Pacer(double sampleRate) noexcept;

    /// [render thread] The next block. Real-time safe.
    PacerBlock next(const PacerInput& input) noexcept TQ_NONBLOCKING;

    /// [render thread] Whether frames are on their way to the device.
    [[nodiscard]] bool isPlaying() const noexcept { return isPlaying_; }

    /// [any thread] Frames of which a stream never runs dry: the largest piece and two blocks, as
    /// much as is waited for at the least.
    [[nodiscard]] std::size_t margin(std::size_t block, std::size_t largestPiece) const noexcept;

  private:
    std::size_t shortestWait(std::size_t block) const noexcept;
    void start() noexcept;
    void stop() noexcept;
    [[nodiscard]] std::size_t prime(const PacerInput& input) noexcept;
    std::size_t cutOf(const PacerInput& input) const noexcept;
    void cutLead(std::size_t frames) noexcept;
    void watchLead(std::size_t lead, const PacerInput& input) noexcept;

    const double sampleRate_;
    std::uint32_t flushes_ = 0;
    bool isPlaying_ = false;
    bool isWaiting_ = false;     ///< for the time at which what is there is to start
    std::ptrdiff_t waited_ = 0;  ///< frames that it is late already
    std::size_t silentRun_ = 0;  ///< silent frames of the program taken last, one after the other

    // The lead is what waits behind a block. It goes up and down with the program's pieces, so its
    // lowest value of a while is what counts.
    std::size_t watched_ = 0;     ///< frames into the present while
    std::size_t low_ = 0;         ///< lowest of the present one
    std::size_t lastLow_ = 0;     ///< of the one before
    std::size_t highestLow_ = 0;  ///< of all of them
    std::size_t own_ = 0;         ///< the lead that the program itself keeps
    bool knowsLead_ = false;
};

}  // namespace tq::bridges
