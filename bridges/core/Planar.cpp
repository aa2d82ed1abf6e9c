#include "bridges/core/Planar.h"

#include <cstring>

namespace tq::bridges {
namespace {

/// Copies samples that lie `fromStep` and `toStep` bytes apart. A size that the compiler knows
/// makes each copy one move.
template <std::size_t kBytes>
void copy(const std::byte* from, std::size_t fromStep, std::byte* to, std::size_t toStep,
          std::size_t samples) noexcept {
    for (std::size_t i = 0; i < samples; ++i) {
        std::memcpy(to + i * toStep, from + i * fromStep, kBytes);
    }
}

using Copy = void (*)(const std::byte*, std::size_t, std::byte*, std::size_t, std::size_t) noexcept;

Copy copyOf(unsigned bytesPerSample) noexcept {
    switch (bytesPerSample) {
        case 1:
            return &copy<1>;
        case 2:
            return &copy<2>;
        case 3:
            return &copy<3>;
        case 4:
            return &copy<4>;
        default:
            return &copy<8>;
    }
}

}  // namespace

void interleave(std::span<const void* const> planes, unsigned bytesPerSample, std::size_t frames,
                void* interleaved) noexcept {
    constexpr std::byte kNothing[8]{};
    const Copy copy = copyOf(bytesPerSample);
    auto* to = static_cast<std::byte*>(interleaved);
    for (const void* const plane : planes) {
        const auto* const from = static_cast<const std::byte*>(plane);
        copy(from == nullptr ? kNothing : from, from == nullptr ? 0 : bytesPerSample, to,
             planes.size() * bytesPerSample, frames);
        to += bytesPerSample;
    }
}

void deinterleave(const void* interleaved, unsigned bytesPerSample, std::size_t frames,
                  std::span<void* const> planes) noexcept {
    const Copy copy = copyOf(bytesPerSample);
    const auto* from = static_cast<const std::byte*>(interleaved);
    for (void* const plane : planes) {
        if (plane != nullptr) {
            copy(from, planes.size() * bytesPerSample, static_cast<std::byte*>(plane),
                 bytesPerSample, frames);
        }
        from += bytesPerSample;
    }
}

}  // namespace tq::bridges
