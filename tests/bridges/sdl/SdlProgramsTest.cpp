#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "bridges/programs/RecordedRun.h"
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

/// The player of this folder on SDL's disk.
class SdlPlayer : public RecordedRun {
  protected:
    static std::vector<std::string> command(const Output& output, const std::string& road,
                                            int format, const Sound& sound) {
        return {TQ_TEST_SDL_PLAYER,
                road,
                std::to_string(format),
                std::to_string(sound.format.channels),
                std::to_string(sound.format.rate),
                fileOf(output, sound)};
    }
    static constexpr int kS16 = 0x8010;
    static constexpr int kS32 = 0x8020;
};

class SdlRoadTest : public SdlPlayer, public testing::WithParamInterface<const char*> {};

TEST_P(SdlRoadTest, IsRecordedAndSoundsAndAnswersAsBare) {
    const Sound noise = tqtest::markedNoise({.rate = 44100}, 30000);
    FileOutput<tqtest::SdlDisk> output(noise.format);
    const auto player = command(output, GetParam(), kS16, noise);
    const ProgramRun bare = runBare(output, player);
    const ProgramRun recorded = runRecorded(output, player);
    EXPECT_EQ(bare.end.code, 0) << bare.end.text();
    EXPECT_EQ(tqtest::differences(noise, bare.heard), kNothing);
    EXPECT_EQ(tqtest::differences(noise, recorded.heard), kNothing) << recorded.end.text();
    EXPECT_EQ(bare.end.output, recorded.end.output);
    expectTrackHolds(recorded, noise);
}

INSTANTIATE_TEST_SUITE_P(Own, SdlRoadTest,
                         testing::Values("callback", "queue", "pieces", "legacy", "legacyQueue",
                                         "clear", "quit"),
                         [](const testing::TestParamInfo<const char*>& each) {
                             return std::string(each.param);
                         });

struct SdlPrograms : SdlPlayer {};

TEST_F(SdlPrograms, APauseIsSilenceAndLosesNothing) {
    const Sound noise = tqtest::markedNoise({.rate = 44100}, 60000);
    FileOutput<tqtest::SdlDisk> output(noise.format);
    const ProgramRun run = runRecorded(output, command(output, "pause", kS16, noise));
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    for (const Sound& sound : {run.heard, run.tracks.begin()->second.trimmed()}) {
        const auto found = tqtest::differences(noise, sound);
        ASSERT_EQ(found.size(), 1U);
        EXPECT_NE(found[0].find("frames of silence inserted"), std::string::npos) << found[0];
    }
}

TEST_F(SdlPrograms, ThirtyTwoBitsStayThirtyTwo) {
    const Sound noise =
        tqtest::markedNoise({.rate = 48000, .encoding = tqtest::Encoding::S32}, 24000);
    FileOutput<tqtest::SdlDisk> output(noise.format);
    const ProgramRun run = runRecorded(output, command(output, "callback", kS32, noise));
    EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
    expectTrackHolds(run, noise);
}

TEST_F(SdlPrograms, DuckedTheTrackIsWhatIsHeard) {
    const Sound noise = tqtest::markedNoise({.rate = 44100}, 30000);
    for (const char* const road : {"callback", "pieces", "legacy"}) {
        FileOutput<tqtest::SdlDisk> output(noise.format);
        const ProgramRun ducked = runRecorded(output, command(output, road, kS16, noise),
                                              {"--duck=-20", "--attack", "0.001"});
        ASSERT_EQ(ducked.heard.frames(), noise.frames()) << ducked.end.text();
        expectTrackHolds(ducked, ducked.heard);
        for (const std::size_t frame : {480U, 12345U, 29999U}) {
            EXPECT_NEAR(ducked.heard.value(frame, 0), noise.value(frame, 0) / 10, 0.001)
                << road << " frame " << frame;
        }
    }
}

TEST_F(SdlPrograms, ACopyWithAnotherNameIsRecordedWhereverItPlays) {
    const Sound noise = tqtest::markedNoise({}, 24000);
    ServerOutput<tqtest::PulseServer> output;
    const std::string copy = output.folder().file("libgamesound.so");
    std::filesystem::copy_file(TQ_TEST_SDL_LIBRARY, copy);
    std::vector<std::string> player{
        "sh", "-c",
        "SDL_AUDIODRIVER=pulseaudio LD_PRELOAD=\"$LD_PRELOAD:" + copy + "\" exec \"$@\"", "sh"};
    const auto own = command(output, "callback", kS16, noise);
    player.insert(player.end(), own.begin(), own.end());
    const ProgramRun run = runRecorded(output, player);
    EXPECT_EQ(tqtest::differences(noise, run.heard), kNothing);
    expectTrackHolds(run, noise);
}

TEST_F(SdlPrograms, AnotherVersionsCallsOfTheSameNamesGoThroughAsTheyAre) {
    FileOutput<tqtest::SdlDisk> output;
    const ProgramRun bare = runBare(output, {TQ_TEST_SDL3_PLAYER});
    const ProgramRun recorded = runRecorded(output, {TQ_TEST_SDL3_PLAYER});
    EXPECT_EQ(bare.end.code, 0) << bare.end.text();
    EXPECT_NE(bare.end.output.find("opened 7\npause 7\npaused 1\npause 3\npaused 0\n"),
              std::string::npos)
        << bare.end.output;
    EXPECT_EQ(bare.end.output, recorded.end.output) << recorded.end.text();
}

}  // namespace
}  // namespace programruns
