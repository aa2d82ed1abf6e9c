#include <RZFrameAccount.h>
#include <RZStreamMixManager.h>

#include <algorithm>

#include "Call.h"

// What became of the frames that the program has rendered.

namespace {

static_assert(TQ_FRAMES_NOT_CAPTURING == static_cast<int>(RZFrameLoss::NotCapturing));
static_assert(TQ_FRAMES_NOT_WANTED == static_cast<int>(RZFrameLoss::NotWanted));
static_assert(TQ_FRAMES_WRONG_SIZE == static_cast<int>(RZFrameLoss::WrongSize));
static_assert(TQ_FRAMES_RING_FULL == static_cast<int>(RZFrameLoss::RingFull));
static_assert(TQ_FRAMES_DISCARDED_AT_START == static_cast<int>(RZFrameLoss::DiscardedAtStart));
static_assert(TQ_FRAMES_LEFT_AT_STOP == static_cast<int>(RZFrameLoss::LeftAtStop));
static_assert(TQ_FRAMES_NO_LISTENER == static_cast<int>(RZFrameLoss::NoListener));
static_assert(TQ_FRAMES_FORMAT_CHANGED == static_cast<int>(RZFrameLoss::FormatChanged));
static_assert(kFrameLosses == TQ_FRAMES_FORMAT_CHANGED + 1 && kFrameLosses <= TQ_FRAME_LOSSES);

tq_frame_side sideOf(const RZFrameSideSums& sums) {
    tq_frame_side side{};
    side.delivered = sums.delivered;
    side.waiting = sums.waiting;
    std::copy(sums.lost.begin(), sums.lost.end(), std::begin(side.lost));
    return side;
}

}  // namespace

tq_result tq_capture_get_frames(uint32_t track, tq_frames* frames) {
    return tqcapi::call([&] {
        if (const tq_result result = tqcapi::checked(frames); result != TQ_OK) {
            return result;
        }
        if (track > RZUnitFacts::kTracks) {
            return TQ_ERROR_VALUE;
        }
        const RZFrameSums sums =
            RZStreamMixManager::sharedManager()->frameSums(static_cast<int>(track));
        return tqcapi::answer(frames, {0, sums.rendered, sideOf(sums.pre), sideOf(sums.post)});
    });
}
