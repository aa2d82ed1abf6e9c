#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "Sound.h"
#include "output/MixSink.h"

namespace tqrecorder::test {

inline constexpr std::uint64_t kStart = 5'000'000;

inline std::uint64_t at(std::size_t frame, double rate = 44100) {
    return kStart +
           static_cast<std::uint64_t>(std::llround(static_cast<double>(frame) / rate * 1e6));
}

/// A process that plays to sinks, and a folder for what they write.
class SinkFixture : public testing::Test {
  protected:
    /// Frames [from, to) of the counting sound in blocks of 470.
    static void play(Sink& sink, const Process& who, std::size_t from, std::size_t to) {
        for (std::size_t frame = from; frame < to; frame += 470) {
            const std::size_t count = std::min<std::size_t>(470, to - frame);
            const std::vector<std::byte> bytes = counting(count, frame);
            sink.block(who, mixBlock(bytes, at(frame)));
        }
    }
    /// A tenth of a second of silence.
    static void playSilence(Sink& sink, const Process& who) {
        sink.block(who, mixBlock(std::vector<std::byte>(4410 * kMixFormat.frameBytes()), kStart));
    }
    /// A split of what nothing waits for: the files that are complete.
    static std::vector<WrittenFile> split(FilesSink& sink) {
        const auto done = std::make_shared<std::vector<WrittenFile>>();
        sink.split(done);
        EXPECT_EQ(done.use_count(), 1);
        return *done;
    }
    /// Lets the sink go on with what waits behind long silence, turn by turn, until `isDone`.
    template <typename IsDone>
    static void workUntil(FilesSink& sink, const IsDone& isDone) {
        ASSERT_FALSE(isDone()) << "all was written at once";
        // A turn of a slow machine may end before a whole step is in the file.
        constexpr int kMostIdleTurns = 10;
        for (int idle = 0; !isDone();) {
            const auto written = [&sink] {
                double seconds = 0;
                for (const WrittenFile& file : sink.files()) {
                    seconds += file.seconds;
                }
                return seconds;
            };
            const double before = written();
            ASSERT_TRUE(sink.isSaving() || isDone());
            idle = written() > before ? 0 : idle + 1;
            ASSERT_LT(idle, kMostIdleTurns);
        }
    }
    std::unique_ptr<MixSink> mixSink(const char* name = "out.wav") {
        auto sink = std::make_unique<MixSink>(
            FileSeries::Plan{folder_.file(name), formatNamed("wav"), {}}, names_);
        EXPECT_TRUE(sink->open());
        return sink;
    }
    TemporaryFolder folder_;
    std::shared_ptr<ProcessNames> names_ = std::make_shared<ProcessNames>();
    /// Plays nothing but silence before the game sounds.
    const Process launcher_ = process(2, "launcher", true);
    const Process game_ = process(1, "game", true);
};

}  // namespace tqrecorder::test
