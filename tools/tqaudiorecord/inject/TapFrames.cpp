#include <cxxabi.h>

#include <algorithm>
#include <ctime>

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

bool Tap::isAnyUnitStarted() {
    bool plays = false;
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            *static_cast<bool*>(context) |= unit->is_started != 0;
        },
        &plays);
    return plays;
}

bool Tap::isAnyWantedStarted() {
    bool plays = false;
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            *static_cast<bool*>(context) |=
                unit->is_started != 0 && unit->reason != TQ_UNIT_EXCLUDED;
        },
        &plays);
    return plays;
}

/// Whether what stopped units have left is still to be delivered. What plays on never ends.
bool Tap::isMoreToCome() const {
    const FramesOfTracks now = framesSince(framesBefore_);
    return !isAnyUnitStarted() &&
           std::any_of(now.begin(), now.end(), [](const TrackFrames& frames) {
               return frames.mix.waiting > 0 || frames.track.waiting > 0;
           });
}

void Tap::publishFramesAtExit() {
    // Of no library: what is registered by one before main() runs when the loader ends that
    // library, which is before it ends the bridges, and those have sound left until then. What this
    // calls is never destroyed.
    (void)abi::__cxa_atexit(
        [](void* /*context*/) {
            Tap* const tap = current();
            if (tap == nullptr || tap->outlet_.load() == nullptr) {
                return;
            }
            // Two or three passes of the device, where a program ends right behind its last sound;
            // the limit is for a device that stands still.
            constexpr timespec kPause{0, 1'000'000};
            constexpr int kMostPauses = 200;
            int pauses = 0;
            for (; pauses < kMostPauses && tap->isMoreToCome(); ++pauses) {
                nanosleep(&kPause, nullptr);
            }
            // Who holds it publishes what was counted earlier, or goes.
            std::unique_lock lock(tap->work_, std::try_to_lock);
            for (; !lock && pauses < kMostPauses; ++pauses) {
                nanosleep(&kPause, nullptr);
                (void)lock.try_lock();
            }
            if (lock && tap->outlet_.load() != nullptr) {
                tap->publishFrames();
            }
        },
        nullptr, nullptr);
}

}  // namespace tqrecorder
