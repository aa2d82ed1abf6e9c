#include "output/live/PulseSource.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/TemporaryFolder.h"

namespace tqrecorder {
namespace {

using std::chrono::milliseconds;

constexpr LiveHeader kThreeChannels{LiveKind::kOpen, 1, 48000, 3, 480};

/// A pipe as the server makes it, with nobody who reads.
class PulseSourceTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
        ASSERT_TRUE(source_.open());
        source_.setRead(true);
    }
    [[nodiscard]] std::size_t waiting() const {
        const tqcommon::Descriptor pipe(::open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        int bytes = 0;
        EXPECT_EQ(ioctl(pipe.get(), FIONREAD, &bytes), 0);
        return static_cast<std::size_t>(bytes);
    }

    const TemporaryFolder folder_;
    const std::string path_ = folder_.file("1.fifo");
    PulseSource source_{kThreeChannels, path_, "name", "description"};
    const SilencePace::Time now_ = std::chrono::steady_clock::now();
    const std::vector<std::byte> block_ = std::vector<std::byte>(480 * 3 * sizeof(float));
};

TEST_F(PulseSourceTest, FramesAreOfASizeThatDividesWhatTheServerReads) {
    EXPECT_THAT(source_.moduleArguments(), testing::HasSubstr(" channels=4 "));
    source_.write(block_, now_);
    EXPECT_EQ(waiting(), 480U * 4 * sizeof(float));
}

TEST_F(PulseSourceTest, NothingWaitsForAReaderThatComesLater) {
    source_.write(block_, now_);
    source_.setRead(false);
    source_.write(block_, now_);
    EXPECT_EQ(waiting(), 0U);
}

TEST_F(PulseSourceTest, AServerThatStandsStillFindsWhatIsNewest) {
    for (int i = 0; i < 100; ++i) {
        source_.write(block_, now_);
    }
    EXPECT_LT(waiting(), 100 * 480U * 4 * sizeof(float));
    EXPECT_GT(waiting(), 0U);
}

TEST_F(PulseSourceTest, SilenceFollowsASoundThatCeases) {
    source_.write(block_, now_);
    const std::size_t before = waiting();
    source_.fill(now_ + milliseconds{50});
    EXPECT_EQ(waiting(), before) << "blocks come later than that";
    source_.fill(now_ + milliseconds{100});
    EXPECT_GT(waiting(), before);
}

TEST(PulseSourcePipe, OneThatIsNotThereCannotBeOpened) {
    const TemporaryFolder folder;
    PulseSource source(kThreeChannels, folder.file("none.fifo"), "name", "description");
    EXPECT_FALSE(source.open());
}

TEST(PropertyValue, WhatIsSpecialToTheServerIsMarked) {
    EXPECT_EQ(propertyValue(R"(a "b" 'c' \d)"), R"('a \"b\" \'c\' \\d')");
}

TEST(SilencePace, InALongPauseThereIsAsMuchSilenceAsTime) {
    const SilencePace::Time begin{};
    SilencePace pace(48000, begin);
    std::uint64_t frames = 0;
    for (int i = 1; i <= 1000; ++i) {
        frames += pace.due(begin + milliseconds{10} * i);
    }
    EXPECT_NEAR(static_cast<double>(frames), 480000, 48000 * 0.06);
}

TEST(SilencePace, BlocksThatComeInTimeLeaveNoRoomForIt) {
    const SilencePace::Time begin{};
    SilencePace pace(48000, begin);
    for (int i = 0; i < 1000; ++i) {
        pace.sound(4800, begin + milliseconds{100} * i);
        EXPECT_EQ(pace.due(begin + milliseconds{100} * i + milliseconds{99}), 0U);
    }
}

}  // namespace
}  // namespace tqrecorder
