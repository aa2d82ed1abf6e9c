#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <type_traits>
#include <vector>

namespace tqrecorder {

/// What a record in a ring is about. The payload depends on it: buffers of samples one after the
/// other, behind them the name of a track's unit (`nameBytes`); an event's message; a log line's
/// function name (`nameBytes`) and its text; a SharedStream and its name (`nameBytes`).
enum class RecordKind : std::uint32_t { kSkip, kMix, kTrack, kEvent, kLog, kStream };

/// The fixed part of a record, with nothing in it that a copy could not carry.
struct RecordHeader {
    std::uint32_t bytes = 0;  ///< of the whole record, a multiple of 8; set by the ring
    RecordKind kind = RecordKind::kSkip;
    std::uint32_t payloadBytes = 0;  ///< set by the ring
    std::uint32_t track = 0;
    std::uint32_t channels = 0;
    std::uint32_t bitsPerChannel = 0;
    std::uint32_t isFloat = 0;
    std::uint32_t isBigEndian = 0;
    std::uint32_t isUnsigned = 0;
    std::uint32_t fractionBits = 0;  ///< of fixed point; 0: full scale is the whole range
    std::uint32_t buffers = 0;       ///< the payload is that many buffers of equal size
    std::uint32_t nameBytes = 0;
    std::uint64_t microseconds = 0;
    std::uint64_t category = 0;
    std::uint64_t code = 0;  ///< of a log line: its level
    double sampleRate = 0;
    /// Of sound: frames of the same track or mix that found no room since its record before.
    std::uint64_t lostFrames = 0;
};
static_assert(std::is_trivially_copyable_v<RecordHeader> && sizeof(RecordHeader) % 8 == 0);

/// The state of one ring, in shared memory. All numbers only grow.
struct RingState {
    alignas(64) std::atomic<std::uint64_t> written{0};  ///< bytes; the writer's
    std::atomic<std::uint64_t> lostRecords{0};
    std::atomic<std::uint64_t> lostBytes{0};  ///< of payload
    /// How much of the memory may be written by now; only grows. What is behind it is skipped.
    std::atomic<std::uint64_t> usable{std::numeric_limits<std::uint64_t>::max()};
    std::atomic<std::uint32_t> busy{0};
    alignas(64) std::atomic<std::uint64_t> read{0};  ///< bytes; the reader's
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

/// Puts records into a ring. Any thread may push: of two that push at once one is refused, and
/// nobody ever waits.
class RingWriter {
  public:
    using Bytes = std::span<const std::byte>;

    RingWriter() = default;
    /// `memory` is a multiple of 8 bytes, aligned to 8; both outlive the writer.
    RingWriter(RingState& state, std::span<std::byte> memory) : state_(&state), memory_(memory) {}

    /// [real-time safe] False when there was no room: the record is counted as lost.
    bool push(RecordHeader header, std::span<const Bytes> parts) const noexcept;
    /// [real-time safe] The same for one that is tried again: nothing is counted.
    [[nodiscard]] bool tryPush(RecordHeader header, std::span<const Bytes> parts) const noexcept;

  private:
    [[nodiscard]] bool pushAlone(RecordHeader& header, std::span<const Bytes> parts) const noexcept;

    RingState* state_ = nullptr;
    std::span<std::byte> memory_;
};

/// Takes records out of a ring whose other side may be broken or hostile: keeps its own place,
/// believes nothing that it has not copied, and never reads outside the memory. One thread.
class RingReader {
  public:
    enum class Found { kNothing, kRecord, kCorrupt };

    RingReader() = default;
    /// As for the writer. Of a longer payload than `mostPayload` bytes only the beginning is
    /// copied.
    RingReader(RingState& state, std::span<const std::byte> memory,
               std::size_t mostPayload = std::size_t{64} << 10U)
        : state_(&state), memory_(memory), mostPayload_(mostPayload) {}

    /// The oldest record, copied; `payload` is valid until the next call, and shorter than
    /// `header.payloadBytes` where it was cut. A corrupt ring stays so.
    [[nodiscard]] Found next(RecordHeader& header, std::span<const std::byte>& payload);
    /// How far the other side says it has written, bytes since its beginning.
    [[nodiscard]] std::uint64_t written() const;
    /// Whether everything up to there has been taken, or nothing more can be.
    [[nodiscard]] bool hasTaken(std::uint64_t written) const {
        return corrupt_ || read_ >= written;
    }
    /// How full it is, 0 to 1.
    [[nodiscard]] double fill() const;
    /// What was lost since the last call.
    [[nodiscard]] std::uint64_t takeLostRecords();
    [[nodiscard]] std::uint64_t takeLostBytes();

  private:
    RingState* state_ = nullptr;
    std::span<const std::byte> memory_;
    std::size_t mostPayload_ = 0;
    std::uint64_t read_ = 0;
    std::uint64_t lostRecords_ = 0;
    std::uint64_t lostBytes_ = 0;
    std::vector<std::byte> scratch_;
    bool corrupt_ = false;
};

}  // namespace tqrecorder
