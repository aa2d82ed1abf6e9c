#pragma once

#include <SDL2/SDL.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "aligned.h"

struct SwrContext;

/// The conversion to 16-bit as other libraries do it. None truncates or limits as ours does; all do
/// the same kind of work.
class SwresampleToInt16 {
  public:
    SwresampleToInt16();
    void convert(const float* source, std::int16_t* target, std::size_t count);

  private:
    struct Free {
        void operator()(SwrContext* context) const;
    };
    std::unique_ptr<SwrContext, Free> context_;
};

/// Converts in place, so that the samples are copied into its buffer first.
class SdlToInt16 {
  public:
    explicit SdlToInt16(std::size_t count);
    void convert(const float* source, std::int16_t* target, std::size_t count);

  private:
    SDL_AudioCVT plan_{};
    bench::Vector<std::uint8_t> buffer_;
};
