// The mix as a file: holes, drift, long silence.

#include "output/MixSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class MixSinkTest : public SinkFixture {};

TEST_F(MixSinkTest, MixIsWrittenFrameForFrame) {
    auto sink = mixSink();
    play(*sink, game_, 0, 44100);
    sink->finish();
    const RecordedFile recorded(folder_.file("out.wav"));
    ASSERT_EQ(recorded.frames(), 44100U);
    for (std::size_t frame = 0; frame < 44100; ++frame) {
        ASSERT_EQ(recorded.numberAt(frame), static_cast<int>(frame % 30000 + 1));
    }
    EXPECT_EQ(sink->files().at(0).gaps, 0U);
}

TEST_F(MixSinkTest, LostBlocksBecomeSilenceOfTheirLength) {
    auto sink = mixSink();
    play(*sink, game_, 0, 4700);
    const std::vector<std::byte> first = counting(470, 5640);
    Block behind = mixBlock(first, at(5640));
    behind.lostFrames = 940;
    sink->block(game_, behind);
    play(*sink, game_, 6110, 9400);
    sink->finish();
    const RecordedFile recorded(folder_.file("out.wav"));
    ASSERT_EQ(recorded.frames(), 9400U);
    EXPECT_EQ(recorded.numberAt(4699), 4700);
    EXPECT_EQ(recorded.numberAt(4700), 0);
    EXPECT_EQ(recorded.numberAt(5639), 0);
    EXPECT_EQ(recorded.numberAt(5640), 5641);
    EXPECT_EQ(recorded.numberAt(9000), 9001);
    EXPECT_EQ(sink->files().at(0).gaps, 1U);
}

TEST_F(MixSinkTest, WhoGivesUpBreaksOffOnlyAGapOfMoreThanAMinute) {
    for (const std::uint64_t seconds : {30U, 70U}) {
        auto sink = mixSink();
        play(*sink, game_, 0, 4410);
        sink->block(game_, mixBlock(counting(441, 0), at(4410) + seconds * 1'000'000));
        sink->giveUpSaves();
        sink->finish();
        EXPECT_EQ(sink->problems().size(), seconds < 60 ? 0U : 1U);
        const RecordedFile recorded(sink->files().at(0).path);
        EXPECT_EQ(recorded.frames() == 4410 + seconds * 44100 + 441, seconds < 60);
        std::filesystem::remove(sink->files().at(0).path);
    }
}

TEST_F(MixSinkTest, LongSilenceIsWrittenALittleInEveryTurnAndWhatFollowsIsAtItsPlace) {
    constexpr std::size_t kBack = 4410 + 60 * 44'100;
    auto sink = mixSink();
    play(*sink, game_, 0, 4410);
    play(*sink, game_, kBack, kBack + 4700);
    EXPECT_LT(sink->files().at(0).seconds, 1) << "blocks must not wait for a minute of silence";
    sink->processEnded(game_, {});
    while (sink->files().at(0).seconds < (kBack + 4700) / 44'100.0 - 1e-6) {
        const double before = sink->files().at(0).seconds;
        sink->tick(0);
        ASSERT_GT(sink->files().at(0).seconds, before);
    }
    const RecordedFile recorded(folder_.file("out.wav"));
    ASSERT_EQ(recorded.frames(), kBack + 4700);
    EXPECT_EQ(recorded.numberAt(4409), 4410);
    EXPECT_EQ(recorded.numberAt(4410), 0);
    EXPECT_EQ(recorded.numberAt(kBack - 1), 0);
    for (std::size_t frame = kBack; frame < kBack + 4700; ++frame) {
        ASSERT_EQ(recorded.numberAt(frame), static_cast<int>(frame % 30000 + 1));
    }
    sink->finish();
    EXPECT_EQ(sink->files().at(0).gaps, 1U);
}

TEST_F(MixSinkTest, ASplitBehindLongSilenceIsDoneOnceThatIsWritten) {
    constexpr std::size_t kBack = 4700 + 60 * 44'100;
    auto sink = mixSink();
    play(*sink, game_, 0, 4700);
    play(*sink, game_, kBack, kBack + 470);
    const auto done = std::make_shared<std::vector<WrittenFile>>();
    sink->split(done);
    play(*sink, game_, kBack + 470, kBack + 1410);
    EXPECT_LT(sink->files().at(0).seconds, 1);
    workUntil(*sink, [&done] { return done.use_count() == 1; });
    ASSERT_EQ(done->size(), 1U);
    EXPECT_EQ(done->at(0).path, folder_.file("out.wav"));
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), kBack + 470);
    sink->finish();
    const RecordedFile second(folder_.file("out-002.wav"));
    ASSERT_EQ(second.frames(), 940U);
    EXPECT_EQ(second.numberAt(0), static_cast<int>((kBack + 470) % 30000 + 1));
}

TEST_F(MixSinkTest, ASplitThatWaitsIsDoneAtTheEndAtLatest) {
    auto sink = mixSink();
    play(*sink, game_, 0, 470);
    play(*sink, game_, 441'000, 441'470);
    const auto done = std::make_shared<std::vector<WrittenFile>>();
    sink->split(done);
    sink->finish();
    EXPECT_EQ(done.use_count(), 1);
    ASSERT_EQ(done->size(), 1U);
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 441'470U);
}

TEST_F(MixSinkTest, TheEndOfARecordingLeavesNoLongSilenceToFinish) {
    constexpr std::size_t kBack = 60 * 44'100;
    auto sink = mixSink();
    play(*sink, game_, 0, 470);
    play(*sink, game_, kBack, kBack + 470);
    sink->processEnded(game_, {});
    EXPECT_LT(sink->files().at(0).seconds, 1);
    workUntil(*sink, [&sink] { return sink->files().at(0).seconds >= 60; });
    EXPECT_FALSE(sink->isSaving());
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), kBack + 470);
    sink->finish();
}

TEST_F(MixSinkTest, AJumpOfTheTimeStampsBecomesSilenceAndJitterDoesNot) {
    auto sink = mixSink();
    for (std::size_t block = 0; block < 200; ++block) {
        const std::vector<std::byte> bytes = counting(441, block * 441);
        const std::uint64_t jitter = block % 7 * 3000;
        const std::uint64_t pause = block >= 100 ? 3'000'000 : 0;
        sink->block(game_, mixBlock(bytes, at(block * 441) + jitter + pause));
    }
    sink->finish();
    const RecordedFile recorded(folder_.file("out.wav"));
    EXPECT_NEAR(static_cast<double>(recorded.frames()), 200 * 441 + 3 * 44100, 0.03 * 44100);
    EXPECT_EQ(sink->files().at(0).gaps, 1U);
    EXPECT_EQ(recorded.numberAt(44099), 14100);
    EXPECT_EQ(recorded.numberAt(44100), 0);
}

TEST_F(MixSinkTest, AClockThatDriftsFromTheHostsMakesNoHoles) {
    auto sink = mixSink();
    // A hundred parts in a million: a third of a second in an hour.
    for (std::size_t block = 0; block < 360'000; ++block) {
        const double micros = static_cast<double>(block) * 10'000 * 1.0001;
        const std::vector<std::byte> none;
        sink->block(game_, mixBlock(block % 100 == 0 ? counting(441, 0) : counting(441, 1),
                                    kStart + static_cast<std::uint64_t>(micros)));
        if (block == 20'000) {
            break;  // far enough for the correction to show
        }
    }
    sink->finish();
    EXPECT_EQ(sink->files().at(0).gaps, 0U);
}

TEST_F(MixSinkTest, AFileThatIsCompleteLosesItsNameToNoOtherProcess) {
    MixSink sink({.path = folder_.file("out.wav"), .kind = formatNamed("wav"), .mayReplace = true},
                 names_);
    const Process voice = process(3, "game");
    const Process last = process(4, "game-2");
    const HostFacts facts;
    for (const Process& one : {process(1, "first"), process(2, "game")}) {
        names_->hear(one);
        play(sink, one, 0, 441);
    }
    // It never sounds: what is in its mix is the user's voice.
    play(sink, voice, 0, 882);
    sink.processEnded(voice, facts);
    names_->hear(last);
    play(sink, last, 0, 441);
    sink.finish();
    EXPECT_EQ(RecordedFile(folder_.file("out-game-2.wav")).frames(), 882U);
    EXPECT_EQ(RecordedFile(folder_.file("out-game-2-2.wav")).frames(), 441U);
}

TEST_F(MixSinkTest, ARecordingOfNothingIsNoFile) {
    auto sink = mixSink();
    sink->finish();
    EXPECT_TRUE(folder_.names().empty());
    EXPECT_TRUE(sink->files().empty());
}

TEST_F(MixSinkTest, HeadersAreRefreshedTwiceASecond) {
    auto sink = mixSink();
    play(*sink, game_, 0, 4700);
    sink->tick(600'000);
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).info.frames, 4700);
    play(*sink, game_, 4700, 9400);
    sink->tick(700'000);
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).info.frames, 4700);
    sink->tick(1'200'000);
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).info.frames, 9400);
}

}  // namespace
}  // namespace tqrecorder::test
