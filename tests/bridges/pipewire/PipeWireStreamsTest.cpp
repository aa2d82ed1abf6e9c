#include <gtest/gtest.h>

#include "bridges/programs/ProgramRun.h"
#include "support/sound/Comparison.h"

// Programs that play through PipeWire's own streams.

namespace programruns {
namespace {

using tqtest::Sound;

// pw-play leaves before its last blocks are played, bare as well: they are written all the same.
TEST(PipeWireStreams, WhatPwPlayWritesIsTheTrackAndWhatIsHeardIsAsBare) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    ServerOutput<tqtest::PipeWireServer> output;
    const Sound noise = tqtest::markedNoise({}, 48000);
    const std::string file = output.folder().file("noise.wav");
    writeWav(noise, file);
    const ProgramRun run = runRecorded(output, {"pw-play", file});
    expectTrackHolds(run, noise);
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("pipewire"), std::string::npos)
        << run.tracks.begin()->first;
    constexpr std::size_t kSurelyPlayed = 36000;
    EXPECT_EQ(tqtest::differences(noise.part(0, kSurelyPlayed), run.heard.part(0, kSurelyPlayed)),
              std::vector<std::string>{});
}

// What is heard of mpv on PipeWire differs from run to run, bare as well.
TEST(PipeWireStreams, WhatMpvWritesIsTheOneTrack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    ServerOutput<tqtest::PipeWireServer> output;
    const Sound noise = tqtest::markedNoise({}, 48000);
    const std::string file = output.folder().file("noise.wav");
    writeWav(noise, file);
    const ProgramRun run = runRecorded(
        output, {"mpv", "--no-config", "--no-video", "--really-quiet", "--ao=pipewire", file});
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, noise);
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("pipewire-1_mpv"), std::string::npos)
        << run.tracks.begin()->first;
    EXPECT_NE(run.heard.frames(), 0U);
}

}  // namespace
}  // namespace programruns
