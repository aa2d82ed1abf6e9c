#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/RealTime.h"

namespace tq::bridges {

/// What became of the frames of a FIFO so far. When nobody is inside a call:
/// written = read + cut + flushed + takenBack + waiting.
struct FrameCounts {
    std::uint64_t written = 0;    ///< handed over by the writer, the lost ones too
    std::uint64_t lost = 0;       ///< of those without room: read as silence
    std::uint64_t read = 0;       ///< given to the reader
    std::uint64_t cut = 0;        ///< silence that the reader dropped
    std::uint64_t flushed = 0;    ///< dropped by flush()
    std::uint64_t takenBack = 0;  ///< removed by takeBack()
    std::uint64_t waiting = 0;    ///< neither
};

/// Frames of one stream on their way from the program's thread to the device's, in two planes that
/// move together: what the program wrote (pre) and what is played (post). Frames written without
/// post are the same in both and stand in memory once; silence takes no memory at all. What finds
/// no room is lost, counted, and read as silence of its length in its place.
///
/// One writer and one reader at a time; any number of other threads may call flush() and look.
/// Everything but tryMake() and the destructor is real-time safe and waits for nobody: a thread
/// tries again only when another has moved the ends meanwhile, which each does once in a call.
///
/// How it works. Frames have positions, which count up for ever and wrap at 2^32. `ends_` holds the
/// position of the first waiting frame (low half, moved on by the reader and by flush()) and the
/// one behind the last (high half, moved by the writer). Both in one word, so that taking back and
/// claiming exclude each other: whoever changes the word first has the frames, and takeBack() never
/// goes below what is claimed.
///   - The reader notes in `copying_` where it is about to claim, claims by moving the low half,
///     copies, and clears `copying_`. The writer overwrites nothing from there on, even when
///     flush() has moved the low half past the reader.
///   - `spans_` holds, in order, the positions that are silent or have a post of their own;
///   whatever
///     lies between is plain. The writer changes a span only behind what is claimed; the reader
///     looks only at spans of its claim, and gives one back when it has claimed frames behind it.
///   - Memory and spans are published by the release on `ends_` and seen by the acquire of a claim;
///     what the reader has done with is published by the release on `copying_` and `firstSpan_`.
class FrameFifo {
  public:
    /// [host thread] For 10 seconds of stream, rounded up to a power of two, in at most 64 MiB a
    /// plane. The memory is reserved and costs nothing until it is written. Null when the system
    /// has none, or for a frame of no bytes.
    static std::unique_ptr<FrameFifo> tryMake(unsigned bytesPerFrame, double sampleRate);
    /// [host thread] Nobody is inside a call any more.
    ~FrameFifo();
    FrameFifo(const FrameFifo&) = delete;
    FrameFifo& operator=(const FrameFifo&) = delete;

    /// [any thread, one at a time] The writer appends frames; `post` null means the same as `pre`.
    /// False when some were lost. After a loss it takes nothing until a sixteenth of the room is
    /// free, so that a program which is not paced leaves few long holes.
    bool write(const void* pre, const void* post, std::size_t frames) noexcept TQ_NONBLOCKING;

    /// [any thread, one at a time] The writer removes the newest frames again, as far as the reader
    /// has not claimed them. Returns how many.
    std::size_t takeBack(std::size_t frames) noexcept TQ_NONBLOCKING;

    /// [any thread] Drops what the reader has not claimed. Returns how many frames.
    std::size_t flush() noexcept TQ_NONBLOCKING;

    /// [render thread] The reader takes up to that many frames. A null plane is not filled. Returns
    /// how many there were.
    std::size_t read(void* pre, void* post, std::size_t frames) noexcept TQ_NONBLOCKING;

    /// [render thread] How many of the first waiting frames are known to be silent. Pieces are
    /// looked at in stretches of up to 1024 frames; short silence inside of sound is not known.
    [[nodiscard]] std::size_t silentFrames() const noexcept TQ_NONBLOCKING;

    /// [render thread] The reader drops up to that many of the silent frames in front. Returns how
    /// many.
    std::size_t cutSilence(std::size_t frames) noexcept TQ_NONBLOCKING;

    /// [any thread] Frames that wait; silence counts.
    [[nodiscard]] std::size_t available() const noexcept TQ_NONBLOCKING;
    /// [any thread] Each is exact, all together only while nobody is inside a call.
    [[nodiscard]] FrameCounts counts() const noexcept;
    /// [any thread] Frames that memory has room for.
    [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }
    [[nodiscard]] unsigned bytesPerFrame() const noexcept { return bytesPerFrame_; }

  private:
    using Position = std::uint32_t;
    enum class Kind : std::uint8_t { kSilence, kProcessed };
    static constexpr std::uint32_t kSpans = 256;
    static constexpr std::uint64_t kNotCopying = std::uint64_t{1} << 32;

    struct Range {
        Position begin;
        Position end;
    };
    struct Span {
        std::atomic<std::uint64_t> range{0};
        std::atomic<Kind> kind{Kind::kSilence};
    };

    FrameFifo(unsigned bytesPerFrame, std::size_t capacity, std::byte* memory) noexcept;

    static bool isBefore(Position one, Position other) noexcept {
        return static_cast<std::int32_t>(one - other) < 0;
    }
    static std::uint64_t pack(Position low, Position high) noexcept {
        return std::uint64_t{high} << 32 | low;
    }
    static Range unpack(std::uint64_t word) noexcept {
        return {static_cast<Position>(word), static_cast<Position>(word >> 32)};
    }
    Range spanAt(std::uint32_t number) const noexcept;
    Kind kindAt(std::uint32_t number) const noexcept;

    // The writer's side.
    std::size_t writeStretch(const std::byte* pre, const std::byte* post,
                             std::size_t frames) noexcept;
    std::size_t roomInMemory() const noexcept;
    bool hasLongPast(std::size_t frames) const noexcept;
    std::uint32_t freeSpans() const noexcept;
    bool canExtend(Kind kind) const noexcept;
    void append(Kind kind, std::size_t frames) noexcept;
    void lose(std::size_t frames) noexcept;
    void publish(std::size_t frames) noexcept;
    void copyIn(std::byte* plane, const std::byte* from, std::size_t frames) noexcept;

    // The reader's side.
    Range claim(std::size_t frames) noexcept;
    void giveBack(Range range) noexcept;
    Position silentIn(Range range) const noexcept;
    void deliver(Range claimed, std::byte* pre, std::byte* post) noexcept;
    void copyOut(Position at, std::byte* pre, std::byte* post, std::size_t frames,
                 bool isProcessed) const noexcept;

    const unsigned bytesPerFrame_;
    const std::size_t capacity_;
    std::byte* const pre_;
    std::byte* const post_;

    alignas(64) std::atomic<std::uint64_t> ends_{0};
    std::atomic<std::uint64_t> flushed_{0};

    // Written by the writer.
    alignas(64) std::atomic<std::uint64_t> written_{0};
    std::atomic<std::uint64_t> lost_{0};
    std::atomic<std::uint64_t> takenBack_{0};
    std::atomic<std::uint32_t> endSpan_{0};  ///< number of the next span
    Position end_ = 0;                       ///< the high half of ends_
    Position silentBeforeEnd_ = 0;           ///< positions up to end_ that have no memory
    bool isFull_ = false;

    // Written by the reader.
    alignas(64) std::atomic<std::uint64_t> copying_{kNotCopying};
    std::atomic<std::uint32_t> firstSpan_{0};  ///< number of the first span that is still needed
    std::atomic<std::uint64_t> read_{0};
    std::atomic<std::uint64_t> cut_{0};
    Position silentBeforeSpan_ = 0;  ///< positions before firstSpan_ that have no memory

    std::array<Span, kSpans> spans_;
};

}  // namespace tq::bridges
