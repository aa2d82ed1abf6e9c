#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Programs that play through PipeWire's own streams.

namespace programruns {
namespace {

using tqtest::Sound;

class PipeWireStreams : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
        output_ = std::make_unique<ServerOutput<tqtest::PipeWireServer>>();
        file_ = output_->folder().file("noise.wav");
        writeWav(noise_, file_);
    }
    [[nodiscard]] ProgramRun record(std::vector<std::string> command) {
        command.push_back(file_);
        return runRecorded(*output_, command);
    }

    const Sound noise_ = tqtest::markedNoise({}, 48000);
    std::unique_ptr<ServerOutput<tqtest::PipeWireServer>> output_;
    std::string file_;
};

// pw-play leaves before its last blocks are played, bare as well: they are written all the same.
TEST_F(PipeWireStreams, WhatPwPlayWritesIsTheTrackAndWhatIsHeardIsAsBare) {
    const ProgramRun run = record({"pw-play"});
    expectTrackHolds(run, noise_);
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("pipewire"), std::string::npos)
        << run.tracks.begin()->first;
    constexpr std::size_t kSurelyPlayed = 36000;
    EXPECT_EQ(tqtest::differences(noise_.part(0, kSurelyPlayed), run.heard.part(0, kSurelyPlayed)),
              std::vector<std::string>{});
}

// What is heard of mpv on PipeWire differs from run to run, bare as well.
TEST_F(PipeWireStreams, WhatMpvWritesIsTheOneTrack) {
    const ProgramRun run =
        record({"mpv", "--no-config", "--no-video", "--really-quiet", "--ao=pipewire"});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, noise_);
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("pipewire-1_mpv"), std::string::npos)
        << run.tracks.begin()->first;
    EXPECT_NE(run.heard.frames(), 0U);
}

}  // namespace
}  // namespace programruns
