#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>

namespace tq::bridges {

/// Where a piece of sound lies in ALSA's own memory: an area a channel, whatever lies between.
struct AlsaPiece {
    const snd_pcm_channel_area_t* areas = nullptr;
    unsigned channels = 0;
    unsigned bytesPerSample = 0;
    std::size_t offset = 0;  ///< the first frame's, in frames
    std::size_t frames = 0;
};

/// [any thread] [real-time safe] Whether every sample begins at a whole byte, in memory.
[[nodiscard]] bool isReachable(const AlsaPiece& piece) noexcept;
/// [any thread] [real-time safe] The samples, interleaved; and the way back, from the frame `first`
/// on.
void readPiece(const AlsaPiece& piece, void* frames) noexcept;
void writePiece(const AlsaPiece& piece, const void* frames, std::size_t first) noexcept;

}  // namespace tq::bridges
