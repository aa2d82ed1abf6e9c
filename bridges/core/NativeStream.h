#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "bridges/core/BridgeUnit.h"
#include "bridges/core/FrameFifo.h"
#include "bridges/core/NativeFormat.h"
#include "bridges/core/Pacer.h"
#include "bridges/core/ReservedMemory.h"
#include "bridges/core/SampleConversion.h"

namespace tq::bridges {

/// A stream of a native sound interface: a pcm, a pa_stream, a device, a client. What the program
/// writes goes into a FIFO at write time and out of it into a unit at play time.
///
/// The replacement of a native function that takes sound reads:
///
///     const NativeStream::Use stream(pcm);
///     void* const passed = stream ? stream->prepare(samples, frames, Memory::kConstant) : samples;
///     const auto taken = original(pcm, passed, frames);
///     if (stream) stream->accepted(taken > 0 ? taken : 0);
///
/// One thread at a time writes a stream: the native library asks for no less. Its control calls may
/// come from other threads. NativeStream.cpp has what writers call, StreamLife.cpp the rest.
class NativeStream final : private BlockFeeder {
  public:
    /// Whether the samples that a program passes on may be changed where they are.
    enum class Memory { kConstant, kChangeable };

    /// [host thread] Takes a unit for a stream that is about to play, where one is free. A stream
    /// that is known by the key is closed first: handles come back. `api` and `own` make its name:
    /// "pulse-2 paplay". What cannot be recorded is reported and plays on; then and without memory
    /// nothing is known by the key. The key is not null.
    static void open(const void* key, const NativeFormat& format, std::string_view api,
                     std::string_view own);
    /// What becomes of a closed stream's handle: one that stays may be opened anew, and goes on in
    /// the same track while its format is the same.
    enum class Handle { kGoes, kStays };
    /// [host thread] The program closes it. Never waits: what it has written is played out.
    static void close(const void* key, Handle handle = Handle::kGoes);
    /// [host thread] The program could not open what it calls `own`, for that reason.
    static void refused(std::string_view api, std::string_view own, std::string_view reason);
    /// [host thread] Who is asked and told of streams, before the first of them.
    static void attend(const tq_bridges& attendant);
    /// [host thread] All of them, at the end of the process: waits until what is there is recorded,
    /// but no longer than a stream's margin and five blocks.
    static void finish();

    /// [any thread] [real-time safe] While one lives, the stream's memory stays. Empty for a key
    /// that is not known.
    class Use {
      public:
        explicit Use(const void* key) noexcept;
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        explicit operator bool() const noexcept { return stream_ != nullptr; }
        NativeStream* operator->() const noexcept { return stream_; }

      private:
        NativeStream* stream_;
    };

    // [any thread] [real-time safe] The writer's.

    /// What is to be passed on in place of `samples`: the same, or with ducking and compression
    /// (changed in place, or a copy that is valid until the next call). At most atOnce() frames:
    /// more is passed on as it is.
    [[nodiscard]] void* prepare(const void* samples, std::size_t frames, Memory memory) noexcept;
    /// The native function has taken the first `frames` of what was prepared. The rest is kept: it
    /// is not processed twice when the program writes it again. The first `late` of them stand
    /// where the stream has played already and are not heard.
    void accepted(std::size_t frames, std::size_t late = 0) noexcept;
    /// The program takes back the last `frames` that it has written, as far as they are not played.
    /// Returns how many those were.
    std::size_t takenBack(std::size_t frames) noexcept;
    /// The program leaves a gap of `frames`, which is played as silence.
    void skipped(std::size_t frames) noexcept;
    /// The native side plays nothing any more of what lies further ahead than it may be behind the
    /// unit: of that only what has been played by now can have been heard.
    void cutShort() noexcept;

    /// Longest piece for one prepare(). Longer ones are handed over in parts, so that all of it is
    /// ducked, and recorded while it is played: a call that blocks may last as long as its sound.
    [[nodiscard]] std::size_t atOnce() const noexcept {
        return std::min(mostFrames_, taken_.load(std::memory_order_relaxed));
    }
    /// [any thread] The native side takes no more than that many frames without waiting.
    void takesAtOnce(std::size_t frames) noexcept {
        taken_.store(std::max(frames, std::size_t{1}), std::memory_order_relaxed);
    }

    /// Longest piece that a stream holds.
    [[nodiscard]] std::size_t longestPiece() const noexcept { return mostFrames_; }
    /// Memory for that many frames as the program writes them, for sound that does not lie
    /// interleaved. Null for more than a stream holds. One piece at a time.
    [[nodiscard]] std::byte* room(std::size_t frames) const noexcept {
        return frames <= mostFrames_ ? room_.data() : nullptr;
    }
    /// When the native side plays what it takes.
    enum class Start : std::uint8_t {
        kMade,      ///< it plays
        kToCome,    ///< when it is started, which somebody may never do
        kExpected,  ///< when it says that it has started: in two seconds at the longest, as some
                    ///< servers never say it
    };
    /// What is accepted from here on is played from then on; what was written earlier plays on.
    void waitsFor(Start start) noexcept { start_.store(start, std::memory_order_relaxed); }

    /// Something that the writer's next call wants to know again; null at first.
    void keep(const void* what) noexcept { kept_ = what; }
    [[nodiscard]] const void* kept() const noexcept { return kept_; }

    // [any thread] [real-time safe] Control.

    /// Paused: nothing of it is played until it goes on.
    void frozen(bool isFrozen) noexcept;
    /// The native side has begun to play, also what waited for that.
    void started() noexcept;
    /// Frames that wait for it.
    [[nodiscard]] std::size_t unstarted() const noexcept {
        return unstarted_.load(std::memory_order_relaxed);
    }
    /// What has been written and not played is thrown away.
    void flushed() noexcept;
    /// The same where it is known how many frames the native side has not played: what waits
    /// beyond them has been heard, and is played.
    void flushed(std::size_t unheard) noexcept;
    /// What is accepted, or started, is heard so long after that.
    void heardIn(std::chrono::nanoseconds ahead) noexcept {
        ahead_.store(ahead.count(), std::memory_order_relaxed);
    }

    [[nodiscard]] const NativeFormat& format() const noexcept { return format_; }
    /// [any thread] [real-time safe] Frames that have been written and not played.
    [[nodiscard]] std::size_t waiting() const noexcept { return fifo_->available(); }
    /// [any thread] [real-time safe] Frames by which the unit may be behind the native side.
    [[nodiscard]] std::size_t behind() const noexcept;

  private:
    friend class StreamLife;

    /// Of silence behind a stream's last block, before its unit stops.
    static constexpr int kBlocksBehind = 3;

    enum class State : std::uint8_t { kUnused, kOpen, kClosed };

    NativeStream() = default;
    ~NativeStream() = default;

    // [host thread] Life; the caller holds StreamLife's lock.
    [[nodiscard]] bool begin(const NativeFormat& format, std::string name, std::uint64_t number);
    /// The same stream in the child of a fork, as the program left it.
    [[nodiscard]] bool beginInChild(std::uint64_t number);
    void end();
    /// A gain of its own, for as long as it lives: what has no unit is ducked as well. Not while
    /// there is a unit, unless that is about to be taken away.
    void takeOwnGain();
    /// What waits is lost: no unit has come.
    void forsake() { forsaken_ += fifo_->flush(); }
    [[nodiscard]] tq_stream facts(tq_stream_fate fate, bool isClosed) const;
    [[nodiscard]] bool isPaused() const noexcept {
        return isFrozen_.load(std::memory_order_relaxed);
    }
    /// Nothing of it is to be heard as long as this lasts: it is paused, or all that waits was
    /// written to a native side that is still to be started.
    [[nodiscard]] bool isHeldBack() const noexcept {
        const std::size_t unstarted = this->unstarted();
        return isPaused() || (start_.load(std::memory_order_relaxed) == Start::kToCome &&
                              unstarted != 0 && unstarted >= waiting());
    }
    /// Seconds after which all must have been played that is played at all.
    [[nodiscard]] double longestWait() const;
    [[nodiscard]] std::size_t blockFrames() const;
    /// Of sound that waits, and of the blocks that are under way.
    [[nodiscard]] double secondsLeft() const;

    /// The right to change the end of the FIFO, which nobody waits for.
    class FifoEnd {
      public:
        explicit FifoEnd(NativeStream& stream) noexcept
            : stream_(stream.isEndTaken_.exchange(true, std::memory_order_acquire) ? nullptr
                                                                                   : &stream) {}
        ~FifoEnd() {
            if (stream_ != nullptr) {
                stream_->isEndTaken_.store(false, std::memory_order_release);
            }
        }
        FifoEnd(const FifoEnd&) = delete;
        FifoEnd& operator=(const FifoEnd&) = delete;
        explicit operator bool() const noexcept { return stream_ != nullptr; }

      private:
        NativeStream* stream_;
    };

    /// [any thread] What waits, or is about to, is heard from now on.
    void noteHeard() noexcept;
    /// [writer] The next `frames` of pre_ and post_, processed as far as they are not yet.
    void process(const void* samples, std::size_t frames, tq_source* source) noexcept;

    // [render thread]
    [[nodiscard]] std::size_t startedOf(std::size_t available, std::size_t block) noexcept;
    [[nodiscard]] std::ptrdiff_t lateAt(std::uint64_t hostTime) const noexcept;
    void feed(void* samples, std::size_t frames, std::uint64_t hostTime) noexcept override;
    void replaceByHeard(void* samples, std::size_t frames) noexcept override;

    // Constant while the stream is open.
    NativeFormat format_;
    std::string name_;
    std::uint64_t number_ = 0;
    std::size_t unitFrameBytes_ = 0;
    ConvertSamples toUnit_ = nullptr;
    ConvertSamples fromUnit_ = nullptr;
    bool isNarrower_ = false;     ///< the program's samples have fewer bits than the unit's
    std::size_t mostFrames_ = 0;  ///< of one piece, by our memory

    std::unique_ptr<FrameFifo> fifo_;

    // The writer's.
    ReservedMemory pre_;     ///< as written
    ReservedMemory post_;    ///< as heard
    ReservedMemory fresh_;   ///< what is compared with frames that were kept
    ReservedMemory passed_;  ///< what is passed on where the program's memory is constant
    ReservedMemory room_;
    const void* kept_ = nullptr;
    const tq_source* begun_ = nullptr;  ///< whose gain counted for what was written last
    std::size_t processed_ = 0;         ///< frames of pre_ and post_, from their beginning
    std::size_t prepared_ = 0;          ///< frames of the piece that is under way
    bool isProcessed_ = false;          ///< post_ counts for that piece
    bool isServed_ = false;             ///< there was a unit when it was prepared

    // The render thread's.
    std::optional<Pacer> pacer_;
    std::size_t awaited_ = 0;      ///< frames for which the native side's start has been expected
    std::int64_t playedFrom_ = 0;  ///< heardFrom_ as it was for what was played last
    int blocksBehind_ = 0;         ///< of silence, behind the last frame
    ReservedMemory heard_;         ///< the block that is being rendered, as it is heard

    std::atomic<int> users_{0};
    std::atomic<State> state_{State::kUnused};
    /// Whose gain counts for what is written, unless the stream has one of its own; it plays the
    /// stream unless that is waiting.
    std::atomic<BridgeUnit*> unit_{nullptr};
    /// Closes what tq_source_open_gain() has opened.
    struct CloseSource {
        void operator()(tq_source* source) const { tq_source_close(source); }
    };
    std::unique_ptr<tq_source, CloseSource> ownGain_;  ///< under StreamLife's lock
    /// The same for writers. Stored once, before the stream is found without a unit; only a
    /// stream that nobody uses loses it.
    std::atomic<tq_source*> gain_{nullptr};
    /// All units play closed streams out: what is written is kept until one of them is free.
    std::atomic<bool> isWaiting_{false};
    std::atomic<bool> hasSound_{false};  ///< a first block has been taken
    /// Its unit was not started, as nothing waited to be played. Writers: StreamLife's thread,
    /// which looks again soon whatever this says, and the writer, who wakes it. Publishes nothing.
    std::atomic<bool> isIdle_{false};
    std::atomic<bool> isFrozen_{false};
    std::atomic<Start> start_{Start::kMade};
    std::atomic<bool> isOverdue_{false};  ///< an expected start was not told of in time
    /// So many of the newest frames are not to be played yet. The writer adds before it publishes
    /// the frames, so that the render thread, which reads this behind them, plays none too early.
    std::atomic<std::size_t> unstarted_{0};
    /// When what waits is first heard, in ns of the steady clock; 0 where nobody knows. Stored
    /// before the frames are published and read behind them; taken back by the render thread,
    /// unless there is another, when all of them are played. Only what begins behind a silence is
    /// placed by it, so that one that is overtaken by another does no harm.
    std::atomic<std::int64_t> heardFrom_{0};
    std::atomic<std::int64_t> ahead_{0};  ///< ns by which that is later than it was told of
    std::atomic<std::uint32_t> flushes_{0};
    std::atomic<bool> isOver_{false};         ///< closed, and nothing is left of it
    std::atomic<std::size_t> block_{0};       ///< frames of the device's last block
    std::atomic<std::uint64_t> unserved_{0};  ///< frames that were taken without a unit
    std::atomic<std::size_t> largestPiece_{0};
    std::atomic<std::size_t> taken_{0};     ///< of one piece, by the native side's memory
    std::atomic<bool> isInherited_{false};  ///< of the parent before a fork; not written to here
    /// Somebody changes the end of the FIFO: the writer, or who throws its newest frames away.
    /// Taken with acquire, given back with release.
    std::atomic<bool> isEndTaken_{false};
    // Under StreamLife's lock.
    const void* key_ = nullptr;                         ///< until its handle goes
    std::optional<tq_stream_fate> fate_;                ///< what was said last
    std::chrono::steady_clock::time_point reportedAt_;  ///< when
    std::chrono::steady_clock::time_point openedAt_;
    std::uint64_t reportedWritten_ = 0;  ///< frames
    bool isFilling_ = false;             ///< there were more than when it was reported before
    std::uint64_t forsaken_ = 0;         ///< frames that were kept for a unit that never came
    int failedStarts_ = 0;               ///< of its unit, since it was closed
    bool isExcluded_ = false;            ///< it is not wanted, and never gets a unit
    bool isUnplayable_ = false;          ///< it was given up for that
};

}  // namespace tq::bridges
