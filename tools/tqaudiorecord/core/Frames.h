#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// What became of the frames that a recorded process has rendered, as its library counts them.

namespace tqrecorder {

inline constexpr std::size_t kFrameLosses = 16;
inline constexpr std::size_t kFrameTracks = 8;  ///< track numbers are 1 to 7

/// One of the two ways of a track's frames.
struct FrameSide {
    std::uint64_t delivered = 0;
    std::uint64_t waiting = 0;                       ///< still in the library's rings
    std::array<std::uint64_t, kFrameLosses> lost{};  ///< by the library's reason

    [[nodiscard]] bool operator==(const FrameSide&) const = default;
};

/// Frames of all units that had one track number.
struct TrackFrames {
    std::uint64_t rendered = 0;
    FrameSide mix;
    FrameSide track;

    [[nodiscard]] bool operator==(const TrackFrames&) const = default;
};

using FramesOfTracks = std::array<TrackFrames, kFrameTracks>;

}  // namespace tqrecorder
