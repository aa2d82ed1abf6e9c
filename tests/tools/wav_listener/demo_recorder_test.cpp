// The demo recorder preloaded into the example host: arm, record, look at the files.

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <numbers>

#include "../game_host/GameSounds.h"
#include "../game_host/RunProgram.h"

namespace {

struct Recording {
    SF_INFO info{};
    std::vector<float> samples;

    /// Amplitude of a sine in the first channel, over the whole frames of [from, to) seconds.
    [[nodiscard]] double amplitude(double hertz, double from, double to) const {
        const double rate = info.samplerate;
        const auto first = static_cast<std::size_t>(from * rate);
        const auto last = static_cast<std::size_t>(to * rate);
        double real = 0;
        double imaginary = 0;
        for (std::size_t frame = first; frame < last; ++frame) {
            const float sample = samples.at(frame * static_cast<std::size_t>(info.channels));
            const double phase = 2 * std::numbers::pi * hertz * static_cast<double>(frame) / rate;
            real += sample * std::cos(phase);
            imaginary += sample * std::sin(phase);
        }
        return 2 * std::hypot(real, imaginary) / static_cast<double>(last - first);
    }
    [[nodiscard]] double seconds() const {
        return static_cast<double>(info.frames) / info.samplerate;
    }
};

Recording readRecording(const std::string& path) {
    Recording recording;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &recording.info);
    if (file != nullptr) {
        recording.samples.resize(
            static_cast<std::size_t>(recording.info.frames * recording.info.channels));
        sf_readf_float(file, recording.samples.data(), recording.info.frames);
        sf_close(file);
    }
    return recording;
}

class DemoRecorderTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(tqtest::makeGameSounds(folder_)); }

    /// A sanitized build wants its run-time loaded before the recorder; it works behind it as well.
    tqtest::Outcome run(const char* seconds,
                        std::vector<std::pair<std::string, std::string>> environment) {
        environment.insert(environment.end(), {{"TQ_AUDIO_DEVICE", "null"},
                                               {"ASAN_OPTIONS", "verify_asan_link_order=0"},
                                               {"LD_PRELOAD", TQ_DEMO_RECORDER},
                                               {"XDG_CACHE_HOME", folder_.file("cache")}});
        return tqtest::runProgram(folder_, TQ_GAME_HOST,
                                  {"--quiet", "--seconds", seconds, "--sounds", folder_.file("")},
                                  environment);
    }

    tqpicture::test::TestFolder folder_;
};

TEST_F(DemoRecorderTest, ArmsTheHostWithoutRunningIt) {
    // A host that ran would take a minute.
    const tqtest::Outcome outcome = run("60", {{"DEMO_ARM", "1"}});
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(std::filesystem::exists(folder_.file("cache/game_host/korva_audio_utils")));
}

TEST_F(DemoRecorderTest, SaysThatAHostIsNotArmed) {
    const tqtest::Outcome outcome = run("0.3", {{"DEMO_OUT", folder_.file("out")}});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.errors.find("hooks are not installed"), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("nothing was recorded"), std::string::npos) << outcome.errors;
}

TEST_F(DemoRecorderTest, IsSilentWhenNothingIsAskedOfIt) {
    const tqtest::Outcome outcome = run("0.3", {});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(DemoRecorderTest, RecordsMixAndTracksOfAnArmedHost) {
    ASSERT_EQ(run("1", {{"DEMO_ARM", "1"}}).code, 0);
    const tqtest::Outcome outcome = run("4", {{"DEMO_OUT", folder_.file("out")}});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;

    const Recording mix = readRecording(folder_.file("out/demo.wav"));
    EXPECT_EQ(mix.info.samplerate, 44100);
    EXPECT_EQ(mix.info.channels, 2);
    EXPECT_EQ(mix.info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_GT(mix.seconds(), 3);
    EXPECT_LT(mix.seconds(), 6);
    // The music from a tenth of the script on, 0.6 of its own level; no loop of the host ends
    // between waves. A machine under load may lose some blocks.
    EXPECT_GT(mix.amplitude(441, 0.5, 3), 0.12);
    // What the voice unit plays is not ours to record.
    EXPECT_LT(mix.amplitude(3150, 0.5, 3), 0.01);

    const Recording ambience = readRecording(folder_.file("out/track-1.wav"));
    EXPECT_EQ(ambience.info.samplerate, 22050);
    EXPECT_EQ(ambience.info.channels, 1);
    const Recording music = readRecording(folder_.file("out/track-2.wav"));
    EXPECT_EQ(music.info.samplerate, 48000);
    EXPECT_EQ(music.info.channels, 2);
    EXPECT_EQ(music.info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_GT(music.amplitude(441, 0.5, 3), 0.12);
    EXPECT_LT(music.amplitude(1764, 0.5, 3), 0.02);
    const Recording effects = readRecording(folder_.file("out/track-3.wav"));
    EXPECT_EQ(effects.info.channels, 2);
    EXPECT_LT(effects.amplitude(441, 0.5, 3), 0.02);
    EXPECT_FALSE(std::filesystem::exists(folder_.file("out/track-4.wav")));

    for (const char* words :
         {"track 1: 22050 Hz, integer, mono", "track 2: 48000 Hz, float, stereo",
          "track 3:", "6/0 audio unit start: 1", "6/0 audio unit start: 3", "peak -",
          "dropped by the queue", "demo.wav", "s recorded, peak"}) {
        EXPECT_NE(outcome.errors.find(words), std::string::npos) << words << "\n" << outcome.errors;
    }
    EXPECT_NE(tqtest::contentOf(folder_.file("out/events.txt")).find("\t6/0 audio unit start: 2"),
              std::string::npos);
}

TEST_F(DemoRecorderTest, KeepsTheHostGoingWhenItsFolderCannotBeMade) {
    ASSERT_EQ(run("1", {{"DEMO_ARM", "1"}}).code, 0);
    std::ofstream(folder_.file("file")) << "in the way";
    const tqtest::Outcome outcome = run("0.5", {{"DEMO_OUT", folder_.file("file/out")}});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.errors.find("file/out"), std::string::npos) << outcome.errors;
}

}  // namespace
