#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct SwrContext;

namespace tqrecorder {

/// Converts a stream of 16-bit interleaved frames to another rate (libswresample). [one host thread
/// at a time]
class Resampler {
  public:
    /// Throws std::bad_alloc where there is no memory.
    Resampler(int fromHertz, int toHertz, int channels);
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
    std::size_t frameBytes_;
    std::vector<std::byte> out_;
};

}  // namespace tqrecorder
