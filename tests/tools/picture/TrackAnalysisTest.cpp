#include "picture/TrackAnalysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>

#include "TestWave.h"

namespace tqpicture {
namespace {

class TrackAnalysisTest : public testing::Test {
  protected:
    [[nodiscard]] std::string file(const std::string& name) const { return folder_.file(name); }

    const FrequencyScale scale_{FrequencyAxis::kLogarithmic, 22050, 100};
    TrackAnalysis analysis_;
    std::string error_ = "untouched";

  private:
    TemporaryFolder folder_;
};

TEST_F(TrackAnalysisTest, TellsFormatPeakAndRms) {
    const std::string path = file("tone.wav");
    ASSERT_TRUE(
        test::writeWave(path, test::sine(1000, 44100, 44100, 0.5, 2), 44100, 2, SF_FORMAT_PCM_16));
    ASSERT_TRUE(analyseTrack({"", path, 0}, 1, 100, scale_, analysis_, error_));
    EXPECT_EQ(error_, "untouched");
    EXPECT_EQ(analysis_.info.sampleRate, 44100);
    EXPECT_EQ(analysis_.info.channels, 2);
    EXPECT_EQ(analysis_.info.frames, 44100);
    EXPECT_EQ(analysis_.info.encoding, "Signed 16 bit PCM");
    EXPECT_NEAR(analysis_.peak, 0.5, 1e-3);
    EXPECT_NEAR(analysis_.rms, 0.5 / std::sqrt(2), 1e-3);
}

TEST_F(TrackAnalysisTest, PlacesATrackAtItsStart) {
    const std::string path = file("late.wav");
    ASSERT_TRUE(test::writeWave(path, test::sine(1000, 8000, 8000, 0.5), 8000));
    ASSERT_TRUE(analyseTrack({"", path, 1}, 4, 40, scale_, analysis_, error_));
    for (std::size_t column = 0; column < 40; ++column) {
        EXPECT_EQ(analysis_.envelope[column].hasData, column >= 10 && column < 20) << column;
    }
}

TEST_F(TrackAnalysisTest, CountsSamplesThatAreNoNumbersAsSilence) {
    const std::string path = file("nan.wav");
    std::vector<float> samples(2000, 0.25F);
    samples[100] = std::numeric_limits<float>::quiet_NaN();
    samples[200] = std::numeric_limits<float>::infinity();
    ASSERT_TRUE(test::writeWave(path, samples, 8000));
    ASSERT_TRUE(analyseTrack({"", path, 0}, 0.25, 10, scale_, analysis_, error_));
    EXPECT_NEAR(analysis_.peak, 0.25, 1e-6);
    EXPECT_FALSE(std::isnan(analysis_.rms));
}

TEST_F(TrackAnalysisTest, ReadsFilesLongerThanOneBlock) {
    const std::string path = file("long.wav");
    const std::size_t frames = 700000;
    ASSERT_TRUE(
        test::writeWave(path, test::sine(1000, 44100, frames, 0.5), 44100, 1, SF_FORMAT_PCM_16));
    ASSERT_TRUE(analyseTrack({"", path, 0}, static_cast<double>(frames) / 44100, 100, scale_,
                             analysis_, error_));
    for (const EnvelopeColumn& column : analysis_.envelope) {
        EXPECT_TRUE(column.hasData);
        EXPECT_NEAR(column.rms, 0.5 / std::sqrt(2), 2e-3);
    }
}

TEST_F(TrackAnalysisTest, NamesAFileThatIsNotThere) {
    EXPECT_FALSE(analyseTrack({"", file("none.wav"), 0}, 1, 10, scale_, analysis_, error_));
    EXPECT_NE(error_.find("none.wav"), std::string::npos) << error_;
    EXPECT_EQ(error_.find('\n'), std::string::npos);
}

TEST_F(TrackAnalysisTest, RefusesAFileThatIsNoRecording) {
    const std::string path = file("text.wav");
    std::ofstream(path) << "this is no recording";
    EXPECT_FALSE(analyseTrack({"", path, 0}, 1, 10, scale_, analysis_, error_));
    EXPECT_NE(error_.find("text.wav"), std::string::npos) << error_;
}

}  // namespace
}  // namespace tqpicture
