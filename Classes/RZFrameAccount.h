#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/RealTime.h"

/// Why frames that the program rendered have not reached a listener.
enum class RZFrameLoss : std::uint32_t {
    NotCapturing,      ///< rendered while its unit was not being captured
    NotWanted,         ///< no listener asked for this side
    WrongSize,         ///< the program's buffer does not hold what its format and channels say
    RingFull,          ///< the ring refused the block, or a block that filled it exactly emptied it
    DiscardedAtStart,  ///< the first post read after a start throws away what is there
    LeftAtStop,        ///< still in the rings when nobody was left to read them
    NoListener,        ///< read, but its listener had gone
    FormatChanged,     ///< before or across a change of its unit's or its bus's format
};
inline constexpr std::size_t kFrameLosses = 8;

/// Sums of one side of a track, in frames at the track's own rate.
struct RZFrameSideSums {
    std::uint64_t delivered = 0;  ///< pre: given to the mixer; post: given to listeners
    std::uint64_t waiting = 0;    ///< still in rings
    std::array<std::uint64_t, kFrameLosses> lost{};
};

struct RZFrameSums {
    std::uint64_t rendered = 0;
    RZFrameSideSums pre;
    RZFrameSideSums post;

    /// Frames that were rendered and captured on neither side.
    void addIdle(std::uint64_t frames) noexcept {
        rendered += frames;
        pre.lost[static_cast<std::size_t>(RZFrameLoss::NotCapturing)] += frames;
        post.lost[static_cast<std::size_t>(RZFrameLoss::NotCapturing)] += frames;
    }
    RZFrameSums& operator+=(const RZFrameSums& other) noexcept;
    [[nodiscard]] RZFrameSideSums& side(bool isProcessed) { return isProcessed ? post : pre; }
};

/// What became of the frames of one track number, of all units that ever bore it. On either side
/// rendered = delivered + lost + waiting. What waits is in the rings of the capture objects, which
/// also keep what they saw while nobody captured until they go.
///
/// Counters only grow. Each is added to by whichever thread sees the frames go by and read by
/// anybody; none stands for another, so relaxed order does. Sums taken while the program plays may
/// be a block apart.
class RZFrameAccount {
  public:
    /// [any thread] Real-time safe. Of a track number; all others share the account of number 0.
    static RZFrameAccount& ofTrack(int track) noexcept TQ_NONBLOCKING {
        return accounts_[static_cast<unsigned>(track) < accounts_.size()
                             ? static_cast<unsigned>(track)
                             : 0U];
    }

    // [any thread] Real-time safe.

    /// One side of a rendered block, as far as it is known before the rings.
    struct Offer {
        bool isCapturing;
        bool isWanted;
    };
    /// Frames that were rendered while neither side was captured.
    void idle(std::uint64_t frames) noexcept TQ_NONBLOCKING { add(idle_, frames); }
    /// Any other. What a side does not capture or want is lost here.
    void rendered(std::uint64_t frames, Offer pre, Offer post) noexcept TQ_NONBLOCKING {
        add(rendered_, frames);
        offer(false, frames, pre);
        offer(true, frames, post);
    }
    void delivered(bool isProcessed, std::uint64_t frames) noexcept TQ_NONBLOCKING {
        add(sides_[isProcessed ? 1 : 0].delivered, frames);
    }
    void lost(bool isProcessed, RZFrameLoss reason, std::uint64_t frames) noexcept TQ_NONBLOCKING {
        add(sides_[isProcessed ? 1 : 0].lost[static_cast<std::size_t>(reason)], frames);
    }

    /// [any thread] Real-time safe. Without what waits.
    [[nodiscard]] RZFrameSums sums() const noexcept TQ_NONBLOCKING;

  private:
    using Counter = std::atomic<std::uint64_t>;
    struct Side {
        Counter delivered{0};
        std::array<Counter, kFrameLosses> lost{};
    };
    void offer(bool isProcessed, std::uint64_t frames, Offer offer) noexcept TQ_NONBLOCKING {
        if (!offer.isCapturing) {
            lost(isProcessed, RZFrameLoss::NotCapturing, frames);
        } else if (!offer.isWanted) {
            lost(isProcessed, RZFrameLoss::NotWanted, frames);
        }
    }
    static void add(Counter& counter, std::uint64_t frames) noexcept TQ_NONBLOCKING {
        counter.fetch_add(frames, std::memory_order_relaxed);
    }

    static constinit std::array<RZFrameAccount, 8> accounts_;

    Counter rendered_{0};
    Counter idle_{0};
    std::array<Side, 2> sides_{};
};
