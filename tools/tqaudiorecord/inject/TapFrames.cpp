#include <algorithm>
#include <cstdlib>

#include "inject/Tap.h"

// What became of the frames that the program has rendered.

namespace tqrecorder {
namespace {

static_assert(kFrameLosses == TQ_FRAME_LOSSES);

/// What has come since; what waits is no sum.
FrameSide since(const FrameSide& before, const tq_frame_side& now) {
    FrameSide side;
    side.delivered = now.delivered - before.delivered;
    side.waiting = now.waiting;
    for (std::size_t i = 0; i < kFrameLosses; ++i) {
        side.lost[i] = now.lost[i] - before.lost[i];
    }
    return side;
}

}  // namespace

FramesOfTracks Tap::framesSince(const FramesOfTracks& before) {
    FramesOfTracks all;
    for (std::size_t track = 1; track < all.size(); ++track) {
        tq_frames now{};
        now.size = sizeof now;
        if (tq_capture_get_frames(static_cast<std::uint32_t>(track), &now) == TQ_OK) {
            all[track] = {now.rendered - before[track].rendered, since(before[track].mix, now.mix),
                          since(before[track].track, now.track)};
        }
    }
    return all;
}

void Tap::publishFrames() const {
    const FramesOfTracks now = framesSince(framesBefore_);
    for (std::size_t track = 0; track < now.size(); ++track) {
        memory_->page().frames[track].store(now[track]);
    }
}

void Tap::publishFramesAtExit() {
    std::atexit([] {
        if (Tap* const tap = current()) {
            // Who holds it publishes at this very moment, or goes.
            const std::unique_lock lock(tap->work_, std::try_to_lock);
            if (lock && tap->outlet_.load() != nullptr) {
                tap->publishFrames();
            }
        }
    });
}

}  // namespace tqrecorder
