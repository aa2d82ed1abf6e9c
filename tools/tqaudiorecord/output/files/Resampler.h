#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/Records.h"

struct SwrContext;

namespace tqrecorder {

/// The same in samples that every computation takes: 8 bits in 16, 24 bits in 32, each in the
/// upper ones. Others stay.
[[nodiscard]] BlockFormat widened(BlockFormat format);

/// Frames of `format` in that of widened(); good until the next change of `room`, which is used
/// where they have to be made.
[[nodiscard]] std::span<const std::byte> widen(std::span<const std::byte> frames,
                                               const BlockFormat& format,
                                               std::vector<std::byte>& room);

/// Converts a stream of interleaved frames to another rate and kind of samples (libswresample).
/// [one host thread at a time]
class Resampler {
  public:
    /// Integers of 8 to 32 bits and floats of 32 and 64, into those that widened() gives. As many
    /// channels on both sides. Throws std::bad_alloc where there is no memory.
    Resampler(const BlockFormat& from, const BlockFormat& to);
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// What comes out for these whole frames; good until the next call.
    [[nodiscard]] std::span<const std::byte> convert(std::span<const std::byte> frames);
    /// What is still inside, at the end of the stream.
    [[nodiscard]] std::span<const std::byte> flush();

  private:
    struct Free {
        void operator()(SwrContext* context) const;
    };
    std::span<const std::byte> run(const std::uint8_t* in, int frames);

    std::unique_ptr<SwrContext, Free> context_;
    BlockFormat from_;
    std::size_t outBytes_;  // of a frame
    std::vector<std::byte> wide_;
    std::vector<std::byte> out_;
};

}  // namespace tqrecorder
