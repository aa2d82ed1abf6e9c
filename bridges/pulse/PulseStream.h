#pragma once

#include <pulse/stream.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "bridges/core/NativeStream.h"

namespace tq::bridges {

/// What the program has asked of one pa_stream, as far as it decides what is heard and when. The
/// server keeps positions, pauses and a prebuffer of its own; here they are followed by the
/// program's calls.
///
/// libpulse wants the calls of one stream one after the other, so nothing here is shared between
/// threads.
class PulseStream {
  public:
    enum class Kind : std::uint8_t { kUnconnected, kPlayback, kOther };

    /// The sound that a begin_write has handed out.
    struct Block {
        const std::byte* begin = nullptr;
        std::size_t bytes = 0;

        [[nodiscard]] bool holds(const void* samples) const noexcept {
            const auto* const at = static_cast<const std::byte*>(samples);
            return begin != nullptr && at >= begin && at < begin + bytes;
        }
    };

    // [any thread, one at a time] [real-time safe]

    /// The server has taken `frames` of what was prepared, at the place that `offset` bytes and
    /// `seek` name. `prebuffer` bytes have to wait before it plays.
    void written(NativeStream& stream, std::size_t frames, std::int64_t offset, pa_seek_mode_t seek,
                 std::size_t prebuffer, std::int64_t underflow) noexcept;
    // `underflow` is where the server has run dry last; another place than before is news.
    void corked(NativeStream* stream, bool isCorked, std::int64_t underflow) noexcept;
    void flushed(NativeStream& stream, std::int64_t underflow) noexcept;
    /// It plays what is there, whether that is enough or not.
    void triggered(NativeStream& stream) noexcept;
    void drained(NativeStream& stream) noexcept;
    /// It waits again until `prebuffer` bytes are there; what the server has is counted.
    void prebuffered(NativeStream& stream, std::size_t prebuffer) noexcept;
    /// The server plays, for the first time or again.
    void started(NativeStream* stream) noexcept;
    /// The server has played all that it had, and will say when it plays again.
    void ranDry() noexcept {
        // Without a prebuffer it does not stop, and never says so.
        isStarted = isStarted && !hasPrebuffer_;
        heardEnd_ = end_;
    }
    /// Nothing is played any more. What has been heard is played out, and no more than that.
    void ended(NativeStream& stream) noexcept;
    /// Another stream takes its place, at the same point.
    void goesOn(NativeStream& stream) const noexcept {
        stream.waitsFor(start());
        stream.frozen(isCorked_ || isHeld_);
    }
    /// The server has said what it is like; `prebuffer` in bytes.
    void settled(NativeStream& stream, std::size_t prebuffer) noexcept;

    // Set by host threads.
    const void* key = nullptr;      ///< the pa_stream; null for an unused record
    const void* context = nullptr;  ///< its pa_context
    std::string name;               ///< of program and sound
    int references = 1;             ///< the program's own
    Kind kind = Kind::kUnconnected;
    bool isSettled = false;  ///< its format is known, and the bridge's stream open
    Block block;
    /// False while the server has still to say that it plays: at first, and when it has run dry.
    bool isStarted = true;
    /// The program's own, in whose place ours are.
    struct Notice {
        pa_stream_notify_cb_t call = nullptr;
        void* context = nullptr;
    };
    Notice onStart;
    Notice onUnderflow;

  private:
    [[nodiscard]] NativeStream::Start start() const noexcept {
        return isStarted ? NativeStream::Start::kMade : NativeStream::Start::kExpected;
    }
    [[nodiscard]] std::int64_t place(const NativeStream& stream, std::int64_t offset,
                                     pa_seek_mode_t seek) const noexcept;
    void hold(NativeStream& stream) noexcept;
    [[nodiscard]] std::int64_t heardEnd(const NativeStream& stream) const noexcept;
    [[nodiscard]] bool hasBeenHeard(const NativeStream& stream,
                                    std::int64_t underflow) const noexcept;

    bool isCorked_ = false;
    bool hasPrebuffer_ = false;    ///< by the last write
    bool isHeld_ = false;          ///< it is not full
    std::size_t held_ = 0;         ///< bytes in it
    bool isDrained_ = false;       ///< asked for since the last write
    std::int64_t underflow_ = -1;  ///< the last one that was known at the last write
    // Frames since the stream began.
    std::int64_t next_ = 0;      ///< where the server writes next
    std::int64_t end_ = 0;       ///< of all that has been written
    std::int64_t heardEnd_ = 0;  ///< of what the server had played when it last stopped
};

}  // namespace tq::bridges
