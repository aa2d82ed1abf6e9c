// The last seconds, saved on demand.

#include "output/ReplaySink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class ReplaySinkTest : public SinkFixture {
  protected:
    std::unique_ptr<ReplaySink> replaySink(double seconds) {
        auto sink = std::make_unique<ReplaySink>(
            FileSeries::Plan{folder_.file("replay.wav"), formatNamed("wav"), {}}, seconds, names_);
        EXPECT_TRUE(sink->open());
        return sink;
    }
};

TEST_F(ReplaySinkTest, AReplayHoldsTheLastSeconds) {
    auto sink = replaySink(0.5);
    play(*sink, game_, 0, 100'000);
    EXPECT_TRUE(folder_.names().empty());
    sink->save();
    const RecordedFile recorded(folder_.file("replay-001.wav"));
    ASSERT_EQ(recorded.frames(), 22050U);
    for (std::size_t index = 0; index < 22050; ++index) {
        ASSERT_EQ(recorded.numberAt(index), static_cast<int>((77'950 + index) % 30000 + 1));
    }
}

TEST_F(ReplaySinkTest, SavesFollowEachOtherWithoutOverlapAndGap) {
    auto sink = replaySink(2);
    std::size_t expected = 0;
    for (const std::size_t end : {10'000U, 30'000U, 30'001U, 95'000U}) {
        play(*sink, game_, expected, end);
        sink->save();
        const RecordedFile recorded(sink->files().back().path);
        ASSERT_EQ(recorded.frames(), end - expected);
        for (std::size_t index = 0; index < recorded.frames(); ++index, ++expected) {
            ASSERT_EQ(recorded.numberAt(index), static_cast<int>(expected % 30000 + 1));
        }
    }
    // Nothing new, nothing saved; nor does the end save.
    sink->save();
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"replay-001.wav", "replay-002.wav",
                                                         "replay-003.wav", "replay-004.wav"}));
}

TEST_F(ReplaySinkTest, AReplayKeepsThoseOfEarlierRecordings) {
    std::ofstream(folder_.file("replay-001.wav")) << "precious";
    auto sink = replaySink(1);
    play(*sink, game_, 0, 470);
    sink->save();
    EXPECT_EQ(contentOf(folder_.file("replay-001.wav")), "precious");
    EXPECT_EQ(RecordedFile(folder_.file("replay-002.wav")).frames(), 470U);
}

TEST_F(ReplaySinkTest, AReplayKeepsItsTimeOverAPauseLongerThanItself) {
    auto sink = replaySink(0.5);
    play(*sink, game_, 0, 44'100);
    play(*sink, game_, 44'100 * 5, 44'100 * 5 + 4700);
    sink->save();
    const RecordedFile recorded(folder_.file("replay-001.wav"));
    ASSERT_EQ(recorded.frames(), 22050U);
    EXPECT_EQ(recorded.numberAt(22050 - 4702), 0);
    EXPECT_NE(recorded.numberAt(22050 - 4699), 0);
}

TEST_F(ReplaySinkTest, AReplayThatCannotBeSavedIsKept) {
    std::filesystem::create_directory(folder_.file("in"));
    ReplaySink sink({folder_.file("in/replay.wav"), formatNamed("wav"), {}}, 1, names_);
    ASSERT_TRUE(sink.open());
    play(sink, game_, 0, 4700);
    std::filesystem::rename(folder_.file("in"), folder_.file("away"));
    sink.save();
    ASSERT_EQ(sink.problems().size(), 1U);
    std::filesystem::rename(folder_.file("away"), folder_.file("in"));
    sink.save();
    ASSERT_EQ(sink.files().size(), 1U);
    EXPECT_EQ(RecordedFile(sink.files()[0].path).frames(), 4700U);
}

}  // namespace
}  // namespace tqrecorder::test
