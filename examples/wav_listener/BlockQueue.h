#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace demo {

/// What travels from the audio threads to the writer.
struct RecordHeader {
    enum class Kind : std::uint32_t { kMix, kTrack, kEvent };

    Kind kind = Kind::kMix;
    std::int32_t trackId = 0;
    double sampleRate = 0;  ///< Hz
    std::int32_t channels = 0;
    std::int32_t bitsPerChannel = 0;
    std::uint32_t formatFlags = 0;
    std::uint32_t buffers = 1;       ///< the payload is that many buffers of equal size, in order
    std::uint64_t microseconds = 0;  ///< host time
    std::uint64_t category = 0;      ///< of an event, whose message is the payload
    std::uint64_t code = 0;
    std::uint64_t payloadBytes = 0;  ///< set by the queue

    [[nodiscard]] bool operator==(const RecordHeader&) const = default;
};
static_assert(std::is_trivially_copyable_v<RecordHeader>);

/// A bounded queue of records between one producer and one consumer. A record that does not fit is
/// refused whole and counted; nothing is ever overwritten and the producer never waits.
class BlockQueue {
  public:
    using Bytes = std::span<const std::byte>;

    /// Rounds the capacity up to a power of two.
    explicit BlockQueue(std::size_t capacityBytes) : ring_(std::bit_ceil(capacityBytes)) {}

    /// [producer] [real-time safe] Queues the header and behind it the parts as its payload.
    bool push(RecordHeader header, std::span<const Bytes> parts) noexcept {
        header.payloadBytes = 0;
        for (const Bytes& part : parts) {
            header.payloadBytes += part.size();
        }
        const std::uint64_t needed = sizeof header + header.payloadBytes;
        const std::uint64_t written = written_.load(std::memory_order_relaxed);
        // What the consumer has read may be overwritten.
        const std::uint64_t read = read_.load(std::memory_order_acquire);
        if (needed > ring_.size() - (written - read)) {
            refused_.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        std::uint64_t place = copyIn(written, std::as_bytes(std::span(&header, 1)));
        for (const Bytes& part : parts) {
            place = copyIn(place, part);
        }
        // Publishes the bytes just copied.
        written_.store(place, std::memory_order_release);
        return true;
    }

    /// [consumer] The oldest record; false when there is none.
    bool pop(RecordHeader& header, std::vector<std::byte>& payload) {
        const std::uint64_t read = read_.load(std::memory_order_relaxed);
        if (read == written_.load(std::memory_order_acquire)) {
            return false;
        }
        std::uint64_t place = copyOut(read, std::as_writable_bytes(std::span(&header, 1)));
        payload.resize(header.payloadBytes);
        place = copyOut(place, payload);
        // Gives the room back.
        read_.store(place, std::memory_order_release);
        return true;
    }

    /// Records refused so far. Any thread.
    [[nodiscard]] std::uint64_t refused() const { return refused_.load(std::memory_order_relaxed); }

  private:
    std::uint64_t copyIn(std::uint64_t place, Bytes bytes) noexcept {
        const std::size_t offset = place & (ring_.size() - 1);
        const std::size_t first = std::min(bytes.size(), ring_.size() - offset);
        if (!bytes.empty()) {
            std::memcpy(ring_.data() + offset, bytes.data(), first);
            std::memcpy(ring_.data(), bytes.data() + first, bytes.size() - first);
        }
        return place + bytes.size();
    }

    std::uint64_t copyOut(std::uint64_t place, std::span<std::byte> bytes) const {
        const std::size_t offset = place & (ring_.size() - 1);
        const std::size_t first = std::min(bytes.size(), ring_.size() - offset);
        if (!bytes.empty()) {
            std::memcpy(bytes.data(), ring_.data() + offset, first);
            std::memcpy(bytes.data() + first, ring_.data(), bytes.size() - first);
        }
        return place + bytes.size();
    }

    std::vector<std::byte> ring_;
    std::atomic<std::uint64_t> written_{0};  // bytes ever written; the producer's
    std::atomic<std::uint64_t> read_{0};     // bytes ever read; the consumer's
    std::atomic<std::uint64_t> refused_{0};
};

}  // namespace demo
