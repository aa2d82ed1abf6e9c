// The mix on standard output: readers that go away, that are slow, that want a header.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "Sound.h"
#include "output/PipeSink.h"

namespace tqrecorder::test {
namespace {

class PipeSinkTest : public testing::Test {
  protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        reader_ = ends[0];
        writer_ = ends[1];
    }
    void TearDown() override {
        close(writer_);
        close(reader_);
    }
    std::vector<std::byte> readAll() {
        fcntl(reader_, F_SETFL, O_NONBLOCK);
        std::vector<std::byte> all;
        std::array<std::byte, 65536> piece{};
        for (ssize_t got = 0; (got = read(reader_, piece.data(), piece.size())) > 0;) {
            all.insert(all.end(), piece.begin(), piece.begin() + got);
        }
        return all;
    }

    int reader_ = -1;
    int writer_ = -1;
    const Process game_ = process(1, "game", true);
};

TEST_F(PipeSinkTest, RawIsTheMixItself) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const auto bytes = counting(441, 0);
    sink.block(game_, mixBlock(bytes, 1000));
    sink.finish();
    EXPECT_EQ(readAll(), bytes);
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, AFileGetsItsLengthAtTheEnd) {
    const TemporaryFolder folder;
    const std::string path = folder.file("out.wav");
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    PipeSink sink(file, PipeSink::Shape::kWav);
    const auto bytes = counting(441, 0);
    sink.block(game_, mixBlock(bytes, 1000));
    sink.finish();
    close(file);
    const std::string all = contentOf(path);
    ASSERT_EQ(all.size(), 44 + bytes.size());
    const auto numberAt = [&all](std::size_t place) {
        std::uint32_t number = 0;
        std::memcpy(&number, all.data() + place, sizeof number);
        return number;
    };
    EXPECT_EQ(numberAt(4), 36 + bytes.size());
    EXPECT_EQ(numberAt(40), bytes.size());
    EXPECT_EQ(RecordedFile(path).info.frames, 441);
}

TEST_F(PipeSinkTest, WavBeginsWithAHeaderOfUnknownLength) {
    PipeSink sink(writer_, PipeSink::Shape::kWav);
    const auto bytes = counting(441, 0);
    sink.block(game_, mixBlock(bytes, 1000));
    sink.finish();
    const std::vector<std::byte> all = readAll();
    ASSERT_EQ(all.size(), 44 + bytes.size());
    const std::string head(reinterpret_cast<const char*>(all.data()), 44);
    EXPECT_EQ(head.substr(0, 16), "RIFF\xff\xff\xff\xffWAVEfmt ");
    EXPECT_EQ(head.substr(36), "data\xff\xff\xff\xff");
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), all.begin() + 44));
}

TEST_F(PipeSinkTest, AReaderThatGoesAwayEndsTheRecordingWithoutAProblem) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const auto bytes = counting(441, 0);
    sink.block(game_, mixBlock(bytes, 1000));
    sink.tick(100'000);
    EXPECT_EQ(sink.reasonToEnd(), "");
    close(std::exchange(reader_, -1));
    sink.block(game_, mixBlock(bytes, 11'000));
    EXPECT_EQ(sink.reasonToEnd(), "standard output was closed by its reader");
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, AReaderThatGoesAwayWhileNothingPlaysIsSeen) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    close(std::exchange(reader_, -1));
    sink.tick(100'000);
    EXPECT_EQ(sink.reasonToEnd(), "standard output was closed by its reader");
}

TEST_F(PipeSinkTest, NeverWaitsForASlowReaderAndLosesNothingWithinItsRoom) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    std::vector<std::byte> all;
    // Far more than a pipe holds.
    for (std::size_t block = 0; block < 600; ++block) {
        const auto bytes = counting(441, block * 441);
        sink.block(game_, mixBlock(bytes, 1000 + block * 10'000));
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    std::vector<std::byte> got;
    while (got.size() < all.size()) {
        const std::vector<std::byte> piece = readAll();
        got.insert(got.end(), piece.begin(), piece.end());
        sink.tick(100'000);
    }
    EXPECT_EQ(got, all);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, AtTheEndAReaderThatStillTakesIsWaitedForUntilThatIsGivenUp) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    for (std::size_t block = 0; block < 600; ++block) {
        sink.block(game_, mixBlock(counting(441, block * 441), 1000 + block * 10'000));
    }
    sink.processEnded(game_, {});
    EXPECT_TRUE(sink.isSaving());
    EXPECT_FALSE(readAll().empty());
    sink.tick(100'000);
    EXPECT_TRUE(sink.isSaving());
    sink.giveUpSaves();
    EXPECT_FALSE(sink.isSaving());
    sink.finish();
    EXPECT_THAT(sink.problems(),
                testing::ElementsAre(
                    "standard output: its reader was too slow and missed part of the sound"));
}

TEST_F(PipeSinkTest, ALongPauseIsSilenceOfItsLengthAndTakesNoRoom) {
    constexpr std::size_t kRoom = 100'000;
    constexpr std::uint64_t kSeconds = 60;
    PipeSink sink(writer_, PipeSink::Shape::kRaw, kRoom);
    const auto before = counting(441, 0);
    const auto behind = counting(441, 441);
    sink.block(game_, mixBlock(before, 0));
    sink.processEnded(game_, {});
    sink.block(process(2, "next"), mixBlock(behind, kSeconds * 1'000'000));
    std::vector<std::byte> expected = before;
    expected.resize(static_cast<std::size_t>(kMixFormat.sampleRate) * kSeconds *
                    kMixFormat.frameBytes());
    expected.insert(expected.end(), behind.begin(), behind.end());
    std::vector<std::byte> got;
    while (got.size() < expected.size()) {
        const std::vector<std::byte> piece = readAll();
        got.insert(got.end(), piece.begin(), piece.end());
        (void)sink.isSaving();
    }
    EXPECT_TRUE(got == expected);
    sink.finish();
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, WhatIsTakenLeavesNothingToWaitFor) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    sink.block(game_, mixBlock(counting(441, 0), 1000));
    sink.processEnded(game_, {});
    EXPECT_FALSE(sink.isSaving());
}

TEST_F(PipeSinkTest, WhatGoesOverItsRoomIsCountedAsAProblem) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw, 100'000);
    for (std::size_t block = 0; block < 600; ++block) {
        const auto bytes = counting(441, block * 441);
        sink.block(game_, mixBlock(bytes, 1000 + block * 10'000));
    }
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_THAT(sink.problems()[0], testing::HasSubstr("too slow"));
    close(std::exchange(reader_, -1));
}

// A second in microseconds, for blocks of 441 frames.
constexpr std::uint64_t kPipeSecond = 1'000'000;

TEST_F(PipeSinkTest, WhoSoundsBesideAnotherIsLeftOutAndThatIsAProblem) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const auto first = counting(441, 0);
    sink.block(game_, mixBlock(first, 1000));
    sink.block(process(2, "child"), mixBlock(counting(441, 7), 2000));
    sink.block(process(3, "mute"), mixBlock(std::vector<std::byte>(first.size()), 2000));
    sink.finish();
    EXPECT_EQ(readAll(), first);
    EXPECT_THAT(sink.problems(),
                testing::ElementsAre(
                    "standard output: 0.01 s of child left out, as another program played"));
}

TEST_F(PipeSinkTest, WhenAProcessHasEndedTheNextFollows) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    auto all = counting(441, 0);
    sink.block(game_, mixBlock(all, 1000));
    sink.processEnded(game_, {});
    const auto next = counting(441, 441);
    sink.block(process(2, "next"), mixBlock(next, 11'000));
    sink.finish();
    all.insert(all.end(), next.begin(), next.end());
    EXPECT_EQ(readAll(), all);
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, WhoHasNotSoundedYetKeepsNobodyOut) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const std::vector<std::byte> silence(441 * kMixFormat.frameBytes());
    const auto sound = counting(441, 5);
    sink.block(game_, mixBlock(silence, 0));
    sink.block(process(2, "player"), mixBlock(sound, 10'000));
    sink.block(game_, mixBlock(silence, 10'000));
    sink.block(process(2, "player"), mixBlock(sound, 20'000));
    sink.finish();
    EXPECT_EQ(readAll().size(), silence.size() + 2 * sound.size());
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, WhatAnotherDeliversAheadOfItsTimeTakesNothingFromWhoSounds) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const auto sound = counting(441, 5);
    sink.block(game_, mixBlock(sound, 0));
    // Read after a stall, before the rest of the game's.
    sink.block(process(2, "other"), mixBlock(sound, 5 * kPipeSecond));
    sink.block(game_, mixBlock(sound, 10'000));
    sink.finish();
    EXPECT_EQ(readAll().size(), 2 * sound.size());
}

TEST_F(PipeSinkTest, WhoIsSilentForASecondGivesWayToWhoSounds) {
    const TemporaryFolder folder;
    const std::string path = folder.file("out.raw");
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    PipeSink sink(file, PipeSink::Shape::kRaw);
    const std::vector<std::byte> silence(441 * kMixFormat.frameBytes());
    for (std::uint64_t block = 0; block < 101; ++block) {
        sink.block(game_, mixBlock(silence, block * kPipeSecond / 100));
    }
    const auto sound = counting(441, 5);
    sink.block(process(2, "player"), mixBlock(sound, kPipeSecond + kPipeSecond / 100));
    sink.finish();
    close(file);
    const std::string all = contentOf(path);
    ASSERT_EQ(all.size(), 101 * silence.size() + sound.size()) << "at its time";
    EXPECT_EQ(all.compare(101 * silence.size(), sound.size(),
                          reinterpret_cast<const char*>(sound.data()), sound.size()),
              0);
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, WhoDeliversNothingForASecondGivesWayToWhoSounds) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const auto sound = counting(441, 5);
    sink.block(game_, mixBlock(sound, 0));
    for (std::uint64_t tick = 1; tick <= 12; ++tick) {
        sink.tick(tick * kPipeSecond / 10);
    }
    sink.block(process(2, "player"), mixBlock(sound, kPipeSecond / 100));
    sink.finish();
    EXPECT_EQ(readAll().size(), 2 * sound.size());
    EXPECT_THAT(sink.problems(), testing::IsEmpty());
}

TEST_F(PipeSinkTest, ARecorderThatStoodStillTakesNothingFromWhoSounds) {
    PipeSink sink(writer_, PipeSink::Shape::kRaw);
    const auto sound = counting(441, 5);
    sink.block(game_, mixBlock(sound, 0));
    sink.tick(10'000);
    std::this_thread::sleep_for(std::chrono::milliseconds{1100});
    sink.tick(10'000 + kPipeSecond * 11 / 10);
    // The game sounded all the time; another's block is read before that.
    sink.block(process(2, "hidden"), mixBlock(sound, kPipeSecond));
    sink.block(game_, mixBlock(sound, 10'000));
    sink.finish();
    EXPECT_EQ(readAll().size(), 2 * sound.size());
    EXPECT_THAT(sink.problems(),
                testing::ElementsAre(
                    "standard output: 0.01 s of hidden left out, as another program played"));
}

TEST(PipeSinkDeviceTest, AFullDeviceIsAProblem) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    PipeSink sink(full, PipeSink::Shape::kRaw);
    const auto bytes = counting(441, 0);
    sink.block(process(1, "game", true), mixBlock(bytes, 1000));
    ASSERT_EQ(sink.problems().size(), 1U);
    EXPECT_EQ(sink.problems()[0], "standard output: No space left on device");
    close(full);
}

}  // namespace
}  // namespace tqrecorder::test
