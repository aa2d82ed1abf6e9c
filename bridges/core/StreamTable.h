#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tq::bridges {

/// What is known of streams, by the handle that the native library gave the program.
///
/// Invariant: a place holds a stream before it bears its key, and bears the key for as long as the
/// stream is open. Writers: host threads, one at a time (the caller's lock). Readers: any thread,
/// acquire on the key. A reader that finds a stream pins it and asks again whether it is still the
/// key's (NativeStream::Use); streams are never freed.
template <class Stream>
class StreamTable {
  public:
    /// False when the key's row is full.
    bool add(const void* key, Stream& stream) noexcept {
        for (Place& place : row(key)) {
            if (place.key.load(std::memory_order_relaxed) == nullptr) {
                place.stream.store(&stream, std::memory_order_relaxed);
                place.key.store(key, std::memory_order_release);
                return true;
            }
        }
        return false;
    }
    void remove(const void* key) noexcept {
        for (Place& place : row(key)) {
            if (place.key.load(std::memory_order_relaxed) == key) {
                place.key.store(nullptr, std::memory_order_release);
            }
        }
    }
    void clear() noexcept {
        for (auto& row : rows_) {
            for (Place& place : row) {
                place.key.store(nullptr, std::memory_order_release);
            }
        }
    }
    /// [any thread] [real-time safe] Null for an unknown key.
    [[nodiscard]] Stream* find(const void* key) const noexcept {
        for (const Place& place : row(key)) {
            if (place.key.load(std::memory_order_acquire) == key && key != nullptr) {
                return place.stream.load(std::memory_order_relaxed);
            }
        }
        return nullptr;
    }

  private:
    struct Place {
        std::atomic<const void*> key{nullptr};
        std::atomic<Stream*> stream{nullptr};
    };
    static constexpr std::size_t kRows = 128;
    static constexpr std::size_t kPlaces = 8;
    using Row = std::array<Place, kPlaces>;

    static std::size_t rowOf(const void* key) noexcept {
        // Handles are addresses of things of some hundred bytes: the high bits of a product differ.
        constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15U;
        return (reinterpret_cast<std::uintptr_t>(key) * kGolden >> 32U) % kRows;
    }
    [[nodiscard]] Row& row(const void* key) noexcept { return rows_[rowOf(key)]; }
    [[nodiscard]] const Row& row(const void* key) const noexcept { return rows_[rowOf(key)]; }

    std::array<Row, kRows> rows_{};
};

}  // namespace tq::bridges
