#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <atomic>
#include <bit>
#include <cstdint>

#include "common/RealTime.h"

namespace tqplatform {

/// A parameter's value, with the number of times it was set: so that a ramp that writes its own
/// progress knows that a program has set the parameter meanwhile, even to the same value.
///
/// Invariant: value and count change together. Writers: any thread sets, which counts; the thread
/// that renders moves the value on, which does not. Readers: any thread. Published: this one word
/// and nothing behind it, so all orders are relaxed.
class ParameterValue {
  public:
    struct Seen {
        Float32 value;
        std::uint32_t count;
    };

    ParameterValue() noexcept : ParameterValue(0) {}
    explicit ParameterValue(Float32 value) noexcept : word_(pack({value, 0})) {}

    /// [any thread] [real-time safe]
    [[nodiscard]] Seen seen() const noexcept TQ_NONBLOCKING {
        const std::uint64_t word = word_.load(std::memory_order_relaxed);
        return {std::bit_cast<Float32>(static_cast<std::uint32_t>(word)),
                static_cast<std::uint32_t>(word >> kCountShift)};
    }
    /// [any thread] [real-time safe]
    [[nodiscard]] Float32 load() const noexcept TQ_NONBLOCKING { return seen().value; }

    /// [any thread] [real-time safe] Ends a ramp of the parameter with its slice.
    void set(Float32 value) noexcept TQ_NONBLOCKING {
        std::uint64_t before = word_.load(std::memory_order_relaxed);
        while (!word_.compare_exchange_weak(
            before, pack({value, static_cast<std::uint32_t>(before >> kCountShift) + 1}),
            std::memory_order_relaxed)) {
        }
    }
    /// [render thread] [real-time safe] Unless it was set since it was seen.
    void moveOn(Seen before, Float32 value) noexcept TQ_NONBLOCKING {
        std::uint64_t expected = pack(before);
        word_.compare_exchange_strong(expected, pack({value, before.count}),
                                      std::memory_order_relaxed);
    }

  private:
    static constexpr int kCountShift = 32;

    static std::uint64_t pack(Seen seen) noexcept {
        return std::uint64_t{seen.count} << kCountShift | std::bit_cast<std::uint32_t>(seen.value);
    }

    std::atomic<std::uint64_t> word_;
};

}  // namespace tqplatform
