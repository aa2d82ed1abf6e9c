#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "bridges/programs/ProgramRun.h"
#include "support/LeakCheck.h"

// The recorder with players that know nothing of the platform.

namespace programruns {
namespace {

using testing::HasSubstr;
using tqtest::Sound;

class NativePlayersTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the thread sanitizer cannot be preloaded into a program built without it";
#endif
        // A program that is over at once is looked through while the tap's threads begin.
        tqtest::startProgramsWithoutLeakCheck();
    }
    [[nodiscard]] ProgramRun play(const std::vector<std::string>& before,
                                  const std::vector<std::string>& options = {}) {
        const std::string file = output_.folder().file("noise.wav");
        writeWav(noise_, file);
        std::vector<std::string> command = before;
        command.push_back(file);
        return runRecorded(output_, command, options);
    }

    const Sound noise_ = tqtest::markedNoise({}, 24000);
    FileOutput<tqtest::AlsaFilePcm> output_;
};

TEST_F(NativePlayersTest, TheTrackIsCalledByItsStreamAndHoldsAllOfIt) {
    const ProgramRun run = play({"aplay", "-q", "-D", "cap"});
    expectTrackHolds(run, noise_);
    EXPECT_TRUE(run.tracks.contains("track-1-alsa-1_cap.wav")) << run.end.text();
    EXPECT_THAT(run.end.errors, HasSubstr("track 1 (alsa-1 cap)"));
    EXPECT_THAT(run.end.errors,
                HasSubstr("frames of alsa-1 cap: 24000 written, 24000 into its track\n"));
    EXPECT_THAT(run.end.errors, HasSubstr("frames of track 1: ")) << "the account is the last";
    EXPECT_THAT(run.end.errors, testing::Not(HasSubstr("still in the ring")));
}

TEST_F(NativePlayersTest, APlayerBelowAScriptIsRecordedFromItsFirstFrame) {
    const ProgramRun run = play({"sh", "-c", "aplay -q -D cap \"$0\"; exit 0"});
    expectTrackHolds(run, noise_);
}

TEST_F(NativePlayersTest, DuckingCountsFromTheFirstFramesOn) {
    const ProgramRun run = play({"aplay", "-q", "-D", "cap"}, {"--duck=-12", "--attack", "0.001"});
    ASSERT_EQ(run.heard.frames(), noise_.frames()) << run.end.text();
    const double gain = std::pow(10, -12.0 / 20);
    constexpr std::size_t kRamp = 480;
    for (std::size_t frame = kRamp; frame < noise_.frames(); ++frame) {
        ASSERT_NEAR(run.heard.value(frame, 0), gain * noise_.value(frame, 0), 0.002) << frame;
    }
    expectTrackHolds(run, run.heard);
}

TEST_F(NativePlayersTest, AProgramThatIsLeftOutPlaysDuckedAndLeavesNoFile) {
    for (const std::vector<std::string>& choice :
         {std::vector<std::string>{"--not", "APLAY"}, {"--not", "cap"}, {"--only", "*music*"}}) {
        std::vector<std::string> options{"--duck=-12", "--attack", "0.001"};
        options.insert(options.end(), choice.begin(), choice.end());
        const ProgramRun run = play({"aplay", "-q", "-D", "cap"}, options);
        EXPECT_EQ(run.end.code, 2) << run.end.text();
        ASSERT_EQ(run.heard.frames(), noise_.frames()) << run.end.text();
        EXPECT_NEAR(run.heard.value(12000, 0), std::pow(10, -12.0 / 20) * noise_.value(12000, 0),
                    0.002);
        EXPECT_TRUE(run.tracks.empty() && run.mix.frames() == 0) << run.end.text();
        EXPECT_THAT(run.end.errors,
                    HasSubstr("not recorded: alsa-1 cap: --only or --not leaves it out"));
    }
}

TEST_F(NativePlayersTest, OneOfThoseThatAreWantedIsRecorded) {
    const ProgramRun run = play({"aplay", "-q", "-D", "cap"}, {"--only", "music", "--only", "CA?"});
    expectTrackHolds(run, noise_);
}

TEST_F(NativePlayersTest, WhatAPlayerHasLeftAtItsEndFindsRoom) {
    // Nothing paces the device: nine seconds of ten megabytes are written in a moment, before the
    // ring's memory has been taken, and played out when the player ends.
    constexpr int kTimes = 2;
    const tqtest::SoundFormat format{48000, 6, tqtest::Encoding::S32};
    const Sound noise = tqtest::markedNoise(format, std::size_t{9} * 48000);
    FileOutput<tqtest::AlsaFilePcm> output(format);
    const std::string file = output.folder().file("long.wav");
    writeWav(noise, file);
    for (int i = 0; i < kTimes; ++i) {
        expectTrackHolds(runRecorded(output, {"aplay", "-q", "-D", "cap", file}), noise);
    }
}

TEST_F(NativePlayersTest, CodedSoundIsNamedAsTheReasonForSilence) {
    const ProgramRun run =
        play({"aplay", "-q", "-D", "null", "-t", "raw", "-f", "IEC958_SUBFRAME_LE", "-c", "2"});
    EXPECT_EQ(run.end.code, 2) << run.end.text();
    EXPECT_THAT(run.end.errors, HasSubstr("Silent: aplay: nothing could be recorded"));
    EXPECT_THAT(run.end.errors, HasSubstr("switch pass-through off"));
}

TEST_F(NativePlayersTest, AProgramThatOpensNoStreamIsSaidTo) {
    const ProgramRun run = runRecorded(output_, {"aplay", "--version"});
    EXPECT_EQ(run.end.code, 2) << run.end.text();
    EXPECT_THAT(run.end.errors, HasSubstr("Silent: aplay: no stream of sound was opened"));
}

TEST_F(NativePlayersTest, AProgramWithoutSoundIsSaidToHaveNone) {
    const ProgramRun run = runRecorded(output_, {"sleep", "0.3"});
    EXPECT_EQ(run.end.code, 2) << run.end.text();
    EXPECT_THAT(run.end.errors, HasSubstr("uses none of the interfaces for sound"));
    EXPECT_THAT(run.end.errors, testing::Not(HasSubstr("platform")));
}

}  // namespace
}  // namespace programruns
