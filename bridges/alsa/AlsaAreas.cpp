#include "bridges/alsa/AlsaAreas.h"

#include <cstring>

namespace tq::bridges {
namespace {

constexpr unsigned kBitsPerByte = 8;

std::byte* sampleAt(const AlsaPiece& piece, unsigned channel, std::size_t frame) noexcept {
    const snd_pcm_channel_area_t& area = piece.areas[channel];
    const std::size_t bits = area.first + std::size_t{area.step} * (piece.offset + frame);
    return static_cast<std::byte*>(area.addr) + bits / kBitsPerByte;
}

}  // namespace

bool isReachable(const AlsaPiece& piece) noexcept {
    if (piece.areas == nullptr) {
        return false;
    }
    for (unsigned channel = 0; channel < piece.channels; ++channel) {
        const snd_pcm_channel_area_t& area = piece.areas[channel];
        if (area.addr == nullptr || area.first % kBitsPerByte != 0 ||
            area.step % kBitsPerByte != 0) {
            return false;
        }
    }
    return true;
}

void readPiece(const AlsaPiece& piece, void* frames) noexcept {
    auto* to = static_cast<std::byte*>(frames);
    for (std::size_t frame = 0; frame < piece.frames; ++frame) {
        for (unsigned channel = 0; channel < piece.channels; ++channel) {
            std::memcpy(to, sampleAt(piece, channel, frame), piece.bytesPerSample);
            to += piece.bytesPerSample;
        }
    }
}

void writePiece(const AlsaPiece& piece, const void* frames, std::size_t first) noexcept {
    const auto* from =
        static_cast<const std::byte*>(frames) + first * piece.channels * piece.bytesPerSample;
    for (std::size_t frame = first; frame < piece.frames; ++frame) {
        for (unsigned channel = 0; channel < piece.channels; ++channel) {
            std::memcpy(sampleAt(piece, channel, frame), from, piece.bytesPerSample);
            from += piece.bytesPerSample;
        }
    }
}

}  // namespace tq::bridges
