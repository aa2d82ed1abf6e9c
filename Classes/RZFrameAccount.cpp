#include "RZFrameAccount.h"

constinit std::array<RZFrameAccount, 8> RZFrameAccount::accounts_{};

namespace {

void add(RZFrameSideSums& to, const RZFrameSideSums& from) {
    to.delivered += from.delivered;
    to.waiting += from.waiting;
    for (std::size_t i = 0; i < kFrameLosses; ++i) {
        to.lost[i] += from.lost[i];
    }
}

}  // namespace

RZFrameSums& RZFrameSums::operator+=(const RZFrameSums& other) noexcept {
    rendered += other.rendered;
    add(pre, other.pre);
    add(post, other.post);
    return *this;
}

RZFrameSums RZFrameAccount::sums() const noexcept {
    RZFrameSums sums;
    sums.rendered = rendered_.load(std::memory_order_relaxed);
    for (const bool isProcessed : {false, true}) {
        const Side& from = sides_[isProcessed ? 1 : 0];
        RZFrameSideSums& to = sums.side(isProcessed);
        to.delivered = from.delivered.load(std::memory_order_relaxed);
        for (std::size_t i = 0; i < kFrameLosses; ++i) {
            to.lost[i] = from.lost[i].load(std::memory_order_relaxed);
        }
    }
    sums.addIdle(idle_.load(std::memory_order_relaxed));
    return sums;
}
