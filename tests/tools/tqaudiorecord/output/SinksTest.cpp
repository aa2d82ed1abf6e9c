// Sinks under blocks as hosts deliver them: holes, several processes, tracks, replays.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Sound.h"
#include "output/EventsSink.h"
#include "output/MixSink.h"
#include "output/PictureSink.h"
#include "output/ReplaySink.h"
#include "output/SinkSet.h"
#include "output/TracksSink.h"

namespace tqrecorder::test {
namespace {

constexpr std::uint64_t kStart = 5'000'000;

std::uint64_t at(std::size_t frame, double rate = 44100) {
    return kStart +
           static_cast<std::uint64_t>(std::llround(static_cast<double>(frame) / rate * 1e6));
}

class SinksTest : public testing::Test {
  protected:
    /// Frames [from, to) of the counting sound in blocks of 470.
    static void play(Sink& sink, const Process& who, std::size_t from, std::size_t to) {
        for (std::size_t frame = from; frame < to; frame += 470) {
            const std::size_t count = std::min<std::size_t>(470, to - frame);
            const std::vector<std::byte> bytes = counting(count, frame);
            sink.block(who, mixBlock(bytes, at(frame)));
        }
    }
    std::unique_ptr<MixSink> mixSink(const char* name = "out.wav") {
        auto sink = std::make_unique<MixSink>(
            FileSeries::Plan{folder_.file(name), formatNamed("wav"), {}}, names_);
        EXPECT_TRUE(sink->open());
        return sink;
    }
    std::unique_ptr<ReplaySink> replaySink(double seconds) {
        auto sink = std::make_unique<ReplaySink>(
            FileSeries::Plan{folder_.file("replay.wav"), formatNamed("wav"), {}}, seconds, names_);
        EXPECT_TRUE(sink->open());
        return sink;
    }

    Folder folder_;
    std::shared_ptr<ProcessNames> names_ = std::make_shared<ProcessNames>();
    const Process game_ = process(1, "game", true);
};

TEST_F(SinksTest, MixIsWrittenFrameForFrame) {
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

TEST_F(SinksTest, LostBlocksBecomeSilenceOfTheirLength) {
    auto sink = mixSink();
    play(*sink, game_, 0, 4700);
    sink->lost(game_, 2, 940 * 4);
    play(*sink, game_, 5640, 9400);
    sink->finish();
    const RecordedFile recorded(folder_.file("out.wav"));
    ASSERT_NEAR(static_cast<double>(recorded.frames()), 9400, 1);
    EXPECT_EQ(recorded.numberAt(4699), 4700);
    EXPECT_EQ(recorded.numberAt(4700), 0);
    EXPECT_EQ(recorded.numberAt(5638), 0);
    EXPECT_NEAR(recorded.numberAt(9000), 9001, 1);
    EXPECT_EQ(sink->files().at(0).gaps, 1U);
}

TEST_F(SinksTest, AJumpOfTheTimeStampsBecomesSilenceAndJitterDoesNot) {
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

TEST_F(SinksTest, AClockThatDriftsFromTheHostsMakesNoHoles) {
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

TEST(StreamClockTest, FollowsAnHourOfDriftWithoutAHole) {
    StreamClock clock(44100, 0, kMixPatience);
    for (std::uint64_t block = 0; block < 360'000; ++block) {
        ASSERT_EQ(clock.before(static_cast<std::uint64_t>(static_cast<double>(block) * 10'001.0),
                               441, false),
                  0U);
    }
}

TEST(StreamClockTest, StampsThatBeginAnewFillNothing) {
    StreamClock clock(44100, 1'000'000'000'000'000, kMixPatience);
    EXPECT_EQ(clock.before(1'000'000'000'000'000, 441, false), 0U);
    EXPECT_EQ(clock.before(5, 441, false), 0U);
    EXPECT_EQ(clock.before(UINT64_MAX, 441, true), 0U);
    EXPECT_EQ(clock.before(0, 441, true), 0U);
    EXPECT_EQ(clock.gaps(), 0U);
}

TEST(StreamClockTest, ABurstAfterAStallAddsNoTimeInTheEnd) {
    StreamClock clock(44100, 0, kTrackPatience);
    std::uint64_t frames = 0;
    for (std::uint64_t block = 0; block < 100; ++block) {
        // Blocks 40 to 79 all come at the end of a stall of 0.4 s.
        const std::uint64_t stamp = block >= 40 && block < 80 ? 800'000 : block * 10'000;
        frames += clock.before(stamp, 441, false) + 441;
    }
    frames += clock.before(3'000'000, 441, false) + 441;
    EXPECT_NEAR(static_cast<double>(frames), 3.01 * 44100, 0.01 * 44100);
}

TEST_F(SinksTest, EveryFurtherProcessGetsFilesUnderItsOwnName) {
    auto sink = mixSink();
    play(*sink, game_, 0, 4700);
    play(*sink, process(2, "chat client"), 0, 470);
    play(*sink, process(3, "chat client"), 0, 940);
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out-chat_client-2.wav",
                                                         "out-chat_client.wav", "out.wav"}));
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 4700U);
    EXPECT_EQ(RecordedFile(folder_.file("out-chat_client.wav")).frames(), 470U);
    EXPECT_EQ(sink->files().at(0).path, folder_.file("out.wav"));
}

TEST_F(SinksTest, ALaunchersChildGetsTheNamesAsGiven) {
    auto sink = mixSink();
    sink->processBegan(process(1, "launcher.sh", true));
    play(*sink, process(2, "game"), 0, 470);
    sink->finish();
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.wav"}));
    EXPECT_EQ(RecordedFile(folder_.file("out.wav")).frames(), 470U);
}

TEST_F(SinksTest, ARecordingOfNothingIsAnEmptyFile) {
    auto sink = mixSink();
    sink->finish();
    const RecordedFile recorded(folder_.file("out.wav"));
    EXPECT_TRUE(recorded.opened);
    EXPECT_EQ(recorded.frames(), 0U);
}

TEST_F(SinksTest, HeadersAreRefreshedTwiceASecond) {
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

TEST_F(SinksTest, TracksShareOneTimeAxis) {
    TracksSink sink(folder_.file("tracks"), {}, names_);
    ASSERT_TRUE(sink.open());
    const BlockFormat music{48000, 2, 32, true};
    const BlockFormat effects{22050, 1, 16, false};
    for (std::size_t frame = 0; frame < 96000; frame += 480) {
        const auto bytes = tone<float>(480, music, 480, frame);
        sink.block(game_, {1, "unit A", music, at(frame, 48000), bytes});
    }
    // Plays from half a second to one, and again from one and a half to two.
    for (const std::size_t start : {11025U, 33075U}) {
        for (std::size_t frame = start; frame < start + 11025; frame += 225) {
            const auto bytes = tone<std::int16_t>(441, effects, 225, frame);
            sink.block(game_, {2, "unit B", effects, at(frame, 22050), bytes});
        }
    }
    sink.finish();
    EXPECT_TRUE(sink.problems().empty());
    const RecordedFile first(folder_.file("tracks/track-1-unit_A.wav"));
    ASSERT_EQ(first.frames(), 96000U);
    EXPECT_EQ(first.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    const RecordedFile second(folder_.file("tracks/track-2-unit_B.wav"));
    EXPECT_EQ(second.info.samplerate, 22050);
    EXPECT_EQ(second.info.channels, 1);
    ASSERT_NEAR(static_cast<double>(second.frames()), 44100, 2);
    EXPECT_LT(second.amplitude(441, 0, 0.49), 1e-4);
    EXPECT_NEAR(second.amplitude(441, 0.51, 0.99), 0.5, 0.01);
    EXPECT_LT(second.amplitude(441, 1.01, 1.49), 1e-4);
    EXPECT_NEAR(second.amplitude(441, 1.51, 1.99), 0.5, 0.01);
    EXPECT_EQ(sink.files().at(1).gaps, 1U);
}

TEST_F(SinksTest, ATrackThatChangesItsFormatGoesOnInAnotherFile) {
    TracksSink sink(folder_.file("tracks"), {}, names_);
    ASSERT_TRUE(sink.open());
    const BlockFormat slow{22050, 1, 16, false};
    const BlockFormat fast{48000, 2, 16, false};
    const auto slowBytes = tone<std::int16_t>(441, slow, 22050);
    const auto fastBytes = tone<std::int16_t>(441, fast, 48000);
    sink.block(game_, {1, "unit", slow, kStart, slowBytes});
    sink.block(game_, {1, "unit", fast, kStart + 1'000'000, fastBytes});
    sink.block(game_, {1, "other", fast, kStart + 2'000'000, fastBytes});
    sink.finish();
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-1-unit.wav")).frames(), 22050U);
    const RecordedFile second(folder_.file("tracks/track-1-unit-part2.wav"));
    EXPECT_EQ(second.frames(), 96000U);
    EXPECT_LT(second.amplitude(441, 0, 0.99), 1e-4);
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-1-other.wav")).frames(), 144000U);
    EXPECT_EQ(sink.files().size(), 3U);
}

TEST_F(SinksTest, OneTrackThatCannotBeWrittenLeavesTheOthersAlone) {
    TracksSink sink(folder_.file("tracks"), {}, names_);
    ASSERT_TRUE(sink.open());
    std::filesystem::create_directory(folder_.file("tracks/track-1-unit.wav"));
    const auto bytes = mixTone(441, 4410);
    for (std::size_t block = 0; block < 5; ++block) {
        sink.block(game_, {1, "unit", kMixFormat, at(block * 4410), bytes});
        sink.block(game_, {2, "unit", kMixFormat, at(block * 4410), bytes});
    }
    sink.finish();
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::HasSubstr("track-1-unit.wav: Is a directory"));
    EXPECT_EQ(RecordedFile(folder_.file("tracks/track-2-unit.wav")).frames(), 22050U);
}

TEST_F(SinksTest, AFolderThatCannotBeMadeIsFoundAtOnce) {
    std::ofstream(folder_.file("file")) << "in the way";
    TracksSink sink(folder_.file("file/tracks"), {}, names_);
    EXPECT_FALSE(sink.open());
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::HasSubstr("file/tracks: Not a directory"));
}

TEST_F(SinksTest, EventsAreJsonLinesThatAreThereAtOnce) {
    EventsSink sink(folder_.file("events.jsonl"));
    ASSERT_TRUE(sink.open());
    sink.event(game_, {123456789, 6, 0, "audio unit \"start\"\n: 1"});
    sink.event(game_, {123456790, UINT64_MAX, 7, "bro\xffken"});
    std::ifstream lines(folder_.file("events.jsonl"));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    const auto first = nlohmann::json::parse(line);
    EXPECT_EQ(first["host_time_us"], 123456789U);
    EXPECT_EQ(first["category"], 6U);
    EXPECT_EQ(first["code"], 0U);
    EXPECT_EQ(first["message"], "audio unit \"start\"\n: 1");
    EXPECT_EQ(first["process"], "game");
    EXPECT_EQ(first["pid"], 1001);
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(nlohmann::json::parse(line)["category"], UINT64_MAX);
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(SinksTest, EventsOnAFullDiskAreOneProblem) {
    EventsSink sink("/dev/full");
    ASSERT_TRUE(sink.open());
    sink.event(game_, {1, 2, 3, "a"});
    sink.event(game_, {1, 2, 3, "b"});
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::StartsWith("/dev/full: "));
}

TEST_F(SinksTest, AReplayHoldsTheLastSeconds) {
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

TEST_F(SinksTest, SavesFollowEachOtherWithoutOverlapAndGap) {
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

TEST_F(SinksTest, AReplayKeepsThoseOfEarlierRecordings) {
    std::ofstream(folder_.file("replay-001.wav")) << "precious";
    auto sink = replaySink(1);
    play(*sink, game_, 0, 470);
    sink->save();
    EXPECT_EQ(contentOf(folder_.file("replay-001.wav")), "precious");
    EXPECT_EQ(RecordedFile(folder_.file("replay-002.wav")).frames(), 470U);
}

TEST_F(SinksTest, AReplayKeepsItsTimeOverAPauseLongerThanItself) {
    auto sink = replaySink(0.5);
    play(*sink, game_, 0, 44'100);
    play(*sink, game_, 44'100 * 5, 44'100 * 5 + 4700);
    sink->save();
    const RecordedFile recorded(folder_.file("replay-001.wav"));
    ASSERT_EQ(recorded.frames(), 22050U);
    EXPECT_EQ(recorded.numberAt(22050 - 4702), 0);
    EXPECT_NE(recorded.numberAt(22050 - 4699), 0);
}

TEST_F(SinksTest, AReplayThatCannotBeSavedIsKept) {
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

TEST_F(SinksTest, APictureNeedsNoOtherOutputAndLeavesNothingElse) {
    PictureSink sink(folder_.file("out.png"), nullptr, nullptr, names_);
    ASSERT_TRUE(sink.open());
    sink.processBegan(game_);
    play(sink, game_, 0, 44'100);
    const auto bytes = mixTone(441, 4410);
    sink.block(game_, {1, "unit", kMixFormat, at(4410), bytes});
    sink.event(game_, {at(100), 6, 0, "audio unit start: 1"});
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
    EXPECT_TRUE(sink.isDrawn());
    EXPECT_GT(std::filesystem::file_size(folder_.file("out.png")), 5000U);
}

TEST_F(SinksTest, AHiddenFolderGoesWithItsPicture) {
    {
        PictureSink sink(folder_.file("out.png"), nullptr, nullptr, names_);
        ASSERT_TRUE(sink.open());
        play(sink, game_, 0, 4700);
        sink.finish();
    }
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.png"}));
}

TEST_F(SinksTest, APictureIsDrawnFromFilesThatAreThereAnyway) {
    SinkSet all;
    MixSink& mix = all.add(mixSink());
    TracksSink& tracks =
        all.add(std::make_unique<TracksSink>(folder_.file("tracks"), std::nullopt, names_));
    ASSERT_TRUE(tracks.open());
    PictureSink& picture =
        all.add(std::make_unique<PictureSink>(folder_.file("out.png"), &mix, &tracks, names_));
    ASSERT_TRUE(picture.open());
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"out.wav", "tracks"}));
    play(all, game_, 0, 44'100);
    all.finish();
    EXPECT_THAT(all.problems(), testing::IsEmpty());
    EXPECT_TRUE(picture.isDrawn());
}

TEST_F(SinksTest, APictureOfNothingIsNotDrawn) {
    PictureSink sink(folder_.file("out.png"), nullptr, nullptr, names_);
    ASSERT_TRUE(sink.open());
    sink.finish();
    EXPECT_FALSE(sink.isDrawn());
    EXPECT_FALSE(std::filesystem::exists(folder_.file("out.png")));
}

TEST_F(SinksTest, APictureThatCannotBeWrittenIsFoundAtOnce) {
    PictureSink sink(folder_.file("no/out.png"), nullptr, nullptr, names_);
    EXPECT_FALSE(sink.open());
    EXPECT_EQ(sink.problems().size(), 1U);
}

TEST(FileNamesTest, TakeAdditionsBeforeTheExtension) {
    EXPECT_EQ(withAddition("a/b.c/out.wav", "-x"), "a/b.c/out-x.wav");
    EXPECT_EQ(withAddition("out", "-x"), "out-x");
    EXPECT_EQ(numberAddition(7), "-007");
    EXPECT_EQ(numberAddition(1234), "-1234");
}

TEST(FileNamesTest, AreMadeOfHarmlessLetters) {
    EXPECT_EQ(fileNamePart("../etc/passwd"), "etc_passwd");
    EXPECT_EQ(fileNamePart("Unit 0x55 <a>"), "Unit_0x55_a");
    EXPECT_EQ(fileNamePart("\xc3\xa4\n"), "unnamed");
    EXPECT_EQ(fileNamePart(std::string(300, 'x')).size(), 60U);
}

}  // namespace
}  // namespace tqrecorder::test
