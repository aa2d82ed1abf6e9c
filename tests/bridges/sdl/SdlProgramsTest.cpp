#include <gtest/gtest.h>

#include <fstream>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Programs on SDL's own driver that writes a file: every road by which SDL takes sound.

namespace programruns {
namespace {

using tqtest::Sound;
using tqtest::SoundFormat;

const std::vector<std::string> kNothing;

std::string fileOf(const Output& output, const Sound& sound) {
    std::string path = output.folder().file("noise.raw");
    std::ofstream(path, std::ios::binary) << sound.bytes;
    return path;
}

class SdlRoadTest : public testing::TestWithParam<const char*> {
  protected:
    const Sound noise_ = tqtest::markedNoise({.rate = 44100}, 30000);
    FileOutput<tqtest::SdlDisk> output_{noise_.format};
    const std::vector<std::string> command_{
        TQ_TEST_SDL_PLAYER, GetParam(), "32784", "2", "44100", fileOf(output_, noise_)};
};

TEST_P(SdlRoadTest, IsHeardAndAnsweredAsBare) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    const ProgramRun bare = runBare(output_, command_);
    const ProgramRun recorded = runRecorded(output_, command_);
    EXPECT_EQ(bare.end.code, 0) << bare.end.text();
    EXPECT_EQ(tqtest::differences(noise_, bare.heard), kNothing);
    EXPECT_EQ(tqtest::differences(noise_, recorded.heard), kNothing) << recorded.end.text();
    EXPECT_EQ(bare.end.output, recorded.end.output);
}

INSTANTIATE_TEST_SUITE_P(Own, SdlRoadTest,
                         testing::Values("callback", "queue", "pieces", "legacy", "legacyQueue",
                                         "clear", "quit"),
                         [](const testing::TestParamInfo<const char*>& each) {
                             return std::string(each.param);
                         });

}  // namespace
}  // namespace programruns
