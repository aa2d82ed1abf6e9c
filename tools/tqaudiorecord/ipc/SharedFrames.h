#pragma once

#include <atomic>
#include <cstdint>

#include "core/Frames.h"

namespace tqrecorder {

/// TrackFrames in shared memory. Written by the process, read by the recorder; each number stands
/// for itself, so a reader may see some of them a moment older than others.
struct SharedFrames {
    struct Side {
        std::atomic<std::uint64_t> delivered{0};
        std::atomic<std::uint64_t> waiting{0};
        std::atomic<std::uint64_t> lost[kFrameLosses] = {};
    };

    std::atomic<std::uint64_t> rendered{0};
    Side mix;
    Side track;

    void store(const TrackFrames& frames);
    /// Adds what is here to `frames`.
    void addTo(TrackFrames& frames) const;
};

}  // namespace tqrecorder
