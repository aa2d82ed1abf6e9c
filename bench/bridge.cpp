// What a native stream costs the program's own thread: a piece of 512 frames is shown to the bridge
// and taken by a native function that does nothing.
#include <TQAudioRecord/tq_capture.h>
#include <TQPlatform/ManualDevice.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <optional>
#include <thread>

#include "Bench.h"
#include "HookedHost.h"
#include "TrackListening.h"
#include "aligned.h"
#include "bridges/core/NativeStream.h"

namespace {

using tq::bridges::NativeFormat;
using tq::bridges::NativeSample;
using tq::bridges::NativeStream;
using Clock = std::chrono::steady_clock;

constexpr const char* kArea = "bridge";
constexpr std::size_t kFrames = 512;
constexpr int kPieces = 8;

/// Ducking by 20 dB for as long as it lives.
class Ducking {
  public:
    Ducking() {
        tq_ducking ducking{};
        ducking.size = sizeof ducking;
        isOn_ = tq_volume_open(&volume_) == TQ_OK && tq_ducking_defaults(&ducking) == TQ_OK &&
                tq_volume_set_ducking(volume_, &ducking) == TQ_OK &&
                tq_volume_set_ducking_level(volume_, 0) == TQ_OK;
    }
    ~Ducking() { (void)tq_volume_close(volume_); }
    Ducking(const Ducking&) = delete;
    Ducking& operator=(const Ducking&) = delete;
    [[nodiscard]] bool isOn() const { return isOn_; }

  private:
    tq_volume* volume_ = nullptr;
    bool isOn_ = false;
};

/// A stream that is recorded for a listener of tracks, on the manual device.
class RecordedStream {
  public:
    explicit RecordedStream(const NativeFormat& format)
        : listening_(
              this, [](void* /*context*/, const tq_block* /*block*/) {}, learn) {
        NativeStream::open(this, format, "bench", "");
    }
    ~RecordedStream() { NativeStream::close(this); }
    RecordedStream(const RecordedStream&) = delete;
    RecordedStream& operator=(const RecordedStream&) = delete;

    void play(UInt32 frames) {
        (void)TQManualDevicePump(frames, hostTime_);
        hostTime_ += static_cast<UInt64>(frames * (1e9 / 48000));
    }
    /// Plays its first frame. Its unit is started by a thread that a busy loop may keep from
    /// running.
    [[nodiscard]] bool begins(const NativeFormat& format) {
        const bench::Vector<std::byte> frame(format.bytesPerFrame());
        const NativeStream::Use stream(this);
        if (!stream) {
            return false;
        }
        (void)stream->prepare(frame.data(), 1, NativeStream::Memory::kConstant);
        stream->accepted(1);
        for (int i = 0; i < 10000 && stream->waiting() != 0; ++i) {
            play(kFrames);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return stream->waiting() == 0;
    }
    /// Closes it and plays it out; whether each frame went into its track.
    [[nodiscard]] bool endsWhole() {
        NativeStream::close(this);
        for (int i = 0; i < 10000 && !isClosed_; ++i) {
            play(kFrames);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return isClosed_ && written_ != 0 && played_ == written_;
    }

  private:
    static void learn(void* stream, const tq_stream* report) {
        auto& self = *static_cast<RecordedStream*>(stream);
        self.written_ = report->written;
        self.played_ = report->played;
        self.isClosed_ = report->is_closed != 0;
    }

    UInt64 hostTime_ = 1'000'000'000;
    std::atomic<std::uint64_t> written_{0};
    std::atomic<std::uint64_t> played_{0};
    std::atomic<bool> isClosed_{false};
    const TrackListening listening_;
};

void piece(benchmark::State& state, NativeSample sample, bool ducks) {
    const HookedHost host(1);
    std::optional<Ducking> ducking;
    if (ducks && !ducking.emplace().isOn()) {
        state.SkipWithError("ducking did not start");
        return;
    }
    const NativeFormat format{sample, 2, 48000};
    RecordedStream recorded(format);
    if (!recorded.begins(format)) {
        state.SkipWithError("the stream does not play");
        return;
    }
    bench::Vector<std::byte> block(kFrames * format.bytesPerFrame());
    std::fill(block.begin(), block.end(), std::byte{0x11});
    for (auto _ : state) {
        const auto start = Clock::now();
        for (int i = 0; i < kPieces; ++i) {
            const NativeStream::Use stream(&recorded);
            if (!stream) {
                state.SkipWithError("there is no memory for the stream");
                return;
            }
            benchmark::DoNotOptimize(
                stream->prepare(block.data(), kFrames, NativeStream::Memory::kConstant));
            stream->accepted(kFrames);
        }
        const std::chrono::duration<double> took = Clock::now() - start;
        state.SetIterationTime(took.count() / kPieces);
        recorded.play(kPieces * kFrames);
    }
    if (!recorded.endsWhole()) {
        state.SkipWithError("the stream was not recorded whole");
    }
}

/// The copy alone, into memory that turns as the FIFO does.
void copy(benchmark::State& state) {
    constexpr std::size_t kBytes = kFrames * 4;
    constexpr std::size_t kRing = std::size_t{1} << 21U;
    bench::Vector<std::byte> block(kBytes);
    bench::Vector<std::byte> ring(kRing);
    std::size_t at = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        for (int i = 0; i < kPieces; ++i) {
            std::memcpy(ring.data() + at, block.data(), kBytes);
            at = (at + kBytes) % kRing;
            benchmark::ClobberMemory();
        }
        const std::chrono::duration<double> took = Clock::now() - start;
        state.SetIterationTime(took.count() / kPieces);
    }
}

}  // namespace

void registerBenchmarks() {
    const char* const plain = "512 frames 16-bit stereo, effects off";
    bench::add(kArea, plain, "ours", [](benchmark::State& state) {
        piece(state, NativeSample::kS16, false);
    })->UseManualTime();
    bench::add(kArea, plain, "limit", copy)->UseManualTime();
    bench::add(kArea, "512 frames float stereo, effects off", "ours", [](benchmark::State& state) {
        piece(state, NativeSample::kF32, false);
    })->UseManualTime();
    bench::add(kArea, "512 frames 24-bit stereo, effects off", "ours", [](benchmark::State& state) {
        piece(state, NativeSample::kS24In3, false);
    })->UseManualTime();
    bench::add(kArea, "512 frames 16-bit stereo, ducked", "ours", [](benchmark::State& state) {
        piece(state, NativeSample::kS16, true);
    })->UseManualTime();
}
