#include <gtest/gtest.h>

#include <fstream>

#include "bridges/programs/RecordedRun.h"
#include "support/sound/Comparison.h"

// A program of ours on an ALSA device that writes a file: every road by which ALSA takes sound.

namespace programruns {
namespace {

using tqtest::Sound;

const std::vector<std::string> kNone;

class AlsaPlayerTest : public testing::Test {
  protected:
    AlsaPlayerTest(const char* road, std::size_t frames)
        : noise_(tqtest::markedNoise({}, frames)), command_{TQ_TEST_ALSA_PLAYER, road, file_} {
        std::ofstream(file_, std::ios::binary) << noise_.bytes;
    }
    void SetUp() override { skipUnlessPreloading(); }

    const Sound noise_;
    FileOutput<tqtest::AlsaFilePcm> output_;
    const std::string file_ = output_.folder().file("noise.raw");
    const std::vector<std::string> command_;
};

class AlsaRoadTest : public AlsaPlayerTest, public testing::WithParamInterface<const char*> {
  protected:
    AlsaRoadTest() : AlsaPlayerTest(GetParam(), 30000) {}
};

class AlsaLongWriteTest : public AlsaPlayerTest {
  protected:
    AlsaLongWriteTest() : AlsaPlayerTest("writei", std::size_t{12} * 48000) {}
};

TEST_P(AlsaRoadTest, IsHeardAndAnsweredAsBareAndOnOneTrack) {
    const ProgramRun bare = runBare(output_, command_);
    const ProgramRun recorded = runRecorded(output_, command_);
    EXPECT_EQ(bare.end.code, 0) << bare.end.text();
    EXPECT_EQ(tqtest::differences(noise_, bare.heard), kNone);
    EXPECT_EQ(tqtest::differences(noise_, recorded.heard), kNone) << recorded.end.text();
    EXPECT_EQ(bare.end.output, recorded.end.output);
    expectTrackHolds(recorded, noise_);
}

TEST_P(AlsaRoadTest, DuckedTheTrackIsWhatIsHeard) {
    const ProgramRun ducked = runRecorded(output_, command_, {"--duck=-20", "--attack", "0.001"});
    ASSERT_EQ(ducked.heard.frames(), noise_.frames()) << ducked.end.text();
    expectTrackHolds(ducked, ducked.heard);
    const std::size_t last = noise_.frames() - 1;
    EXPECT_NEAR(ducked.heard.value(last, 0), noise_.value(last, 0) / 10, 0.02);
}

TEST_P(AlsaRoadTest, AtItsEndAllThatItWroteIsAccountedForAsOnTheTrack) {
    const ProgramRun recorded = runRecorded(output_, command_);
    EXPECT_NE(recorded.end.text().find("30000 written, 30000 into its track"), std::string::npos)
        << recorded.end.text();
}

/// More than a stream holds, in one call.
TEST_F(AlsaLongWriteTest, IsDuckedFromItsFirstFrameToItsLast) {
    const ProgramRun ducked = runRecorded(output_, command_, {"--duck=-20", "--attack", "0.001"});
    EXPECT_NE(ducked.end.output.find(std::to_string(noise_.frames())), std::string::npos);
    ASSERT_EQ(ducked.heard.frames(), noise_.frames()) << ducked.end.text();
    for (const std::size_t frame : {std::size_t{24000}, std::size_t{480000}, noise_.frames() - 1}) {
        EXPECT_NEAR(ducked.heard.value(frame, 0), noise_.value(frame, 0) / 10, 0.02) << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(Own, AlsaRoadTest,
                         testing::Values("writei", "paused_writei", "writen", "mapped",
                                         "mappedPlanes", "mappedWriten"),
                         [](const testing::TestParamInfo<const char*>& each) {
                             return std::string(each.param);
                         });

}  // namespace
}  // namespace programruns
