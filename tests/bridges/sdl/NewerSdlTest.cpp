#include <gtest/gtest.h>

#include <fstream>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Programs of a made-up version 3 of SDL, which shares names with version 2 and plays through the
// interface below by itself.

namespace programruns {
namespace {

using tqtest::Sound;

class NewerSdl : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    }
    /// The player's sound is heard as it is, and is the one track, of the interface below.
    void expectOneTrackBelow(const std::string& player) {
        const Sound noise = tqtest::markedNoise({}, 48000);
        const std::string file = output_.folder().file("noise.raw");
        std::ofstream(file, std::ios::binary) << noise.bytes;
        const ProgramRun run = runRecorded(output_, {player, file});
        EXPECT_EQ(run.end.code, 0) << run.end.text();
        EXPECT_EQ(tqtest::differences(noise, run.heard), std::vector<std::string>{});
        expectTrackHolds(run, noise);
        EXPECT_TRUE(run.tracks.contains("track-1-alsa-1_default.wav")) << run.end.text();
    }

    FileOutput<tqtest::AlsaFilePcm> output_;
};

TEST_F(NewerSdl, IsRecordedAtTheInterfaceBelow) {
    expectOneTrackBelow(TQ_TEST_NEWER_PLAYER);
}

TEST_F(NewerSdl, UnderAStandInForVersionTwoItIsRecordedOnce) {
    expectOneTrackBelow(TQ_TEST_STAND_IN_PLAYER);
}

}  // namespace
}  // namespace programruns
