// The microphone as a file beside the mix.

#include "output/VoiceSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "SinkFixture.h"

namespace tqrecorder::test {
namespace {

class VoiceSinkTest : public SinkFixture {
  protected:
    static constexpr BlockFormat kVoice{44100, 1, 32, true};

    void speak(std::size_t from, std::size_t frames, std::uint64_t lost = 0) {
        speakTo(sink_, from, frames, lost);
    }
    void speakTo(Sink& sink, std::size_t from, std::size_t frames, std::uint64_t lost = 0) {
        speakBeside(sink, game_, from, frames, lost);
    }
    static void speakBeside(Sink& sink, const Process& process, std::size_t from,
                            std::size_t frames, std::uint64_t lost = 0) {
        const auto bytes = tone<float>(441, kVoice, frames, from);
        sink.block(process, {.track = kMicrophoneTrack,
                             .unit = kMicrophoneName,
                             .format = kVoice,
                             .microseconds = at(from),
                             .frames = bytes,
                             .lostFrames = lost});
    }
    const std::string path_ = VoiceSink::pathBeside(folder_.file("out.flac"));
    VoiceSink sink_{{path_, formatNamed("wav")}};
};

TEST_F(VoiceSinkTest, WritesTheMicrophoneAloneAndNamesIt) {
    play(sink_, game_, 0, 4700);
    speak(0, 4410);
    sink_.finish();
    EXPECT_EQ(path_, folder_.file("out-microphone.wav"));
    EXPECT_EQ(RecordedFile(path_).frames(), 4410U);
    ASSERT_EQ(sink_.files().size(), 1U);
    EXPECT_EQ(sink_.files()[0].name, kMicrophoneName);
    EXPECT_EQ(sink_.files()[0].beganAt, kStart);
    EXPECT_EQ(sink_.files()[0].processId, game_.id);
}

TEST_F(VoiceSinkTest, OneThatComesLaterLiesBesideTheMixFromItsFirstFrameOn) {
    play(sink_, launcher_, 0, 470);
    play(sink_, game_, 4410, 4880);
    speak(3 * 44100, 4410);
    sink_.finish();
    const RecordedFile recorded(path_);
    ASSERT_EQ(recorded.frames(), 3U * 44100);
    EXPECT_EQ(recorded.at(2 * 44100), 0);
    EXPECT_NE(recorded.at(3 * 44100 - 4410 + 2), 0);
    EXPECT_EQ(sink_.files()[0].beganAt, at(4410));
}

TEST_F(VoiceSinkTest, AMixWhoseClockDriftsIsFollowedUntilTheMicrophoneComes) {
    constexpr std::size_t kBlocks = 6'000;
    const std::vector<std::byte> bytes = counting(441, 0);
    for (std::size_t block = 0; block < kBlocks; ++block) {
        sink_.block(game_, mixBlock(bytes, kStart + block * 10'005));
    }
    speak(kBlocks * 441 * 10'005 / 10'000, 4410);
    sink_.finish();
    EXPECT_NEAR(static_cast<double>(RecordedFile(path_).frames()), kBlocks * 441 + 4410, 441)
        << "as many as the mix has";
}

TEST_F(VoiceSinkTest, WhatWasLostIsSilenceOfThatLength) {
    // Less than what a clock's jitter may be.
    speak(0, 4410);
    speak(4854, 4410, 444);
    sink_.finish();
    const RecordedFile recorded(path_);
    ASSERT_EQ(recorded.frames(), 2U * 4410 + 444);
    EXPECT_NE(recorded.at(4409), 0);
    for (std::size_t frame = 4410; frame < 4854; ++frame) {
        ASSERT_EQ(recorded.at(frame), 0);
    }
    EXPECT_NE(recorded.at(4856), 0);
    EXPECT_EQ(sink_.files()[0].gaps, 1U);
}

TEST_F(VoiceSinkTest, AJumpOfTimeIsSaid) {
    speak(0, 4410);
    EXPECT_TRUE(sink_.problems().empty());
    speak(std::size_t{48} * 3600 * 44'100, 4410);
    EXPECT_THAT(sink_.problems(),
                testing::ElementsAre(
                    path_ + ": the program's time stamps jumped; what follows is not at its time"));
    sink_.finish();
    EXPECT_EQ(RecordedFile(path_).frames(), 8820U);
}

TEST_F(VoiceSinkTest, TheMicrophoneAloneReplacesNoRecording) {
    std::ofstream(path_) << "a good one";
    VoiceSink sink(
        {.path = path_, .kind = formatNamed("wav"), .mayReplace = true, .programs = names_});
    speakTo(sink, 0, 4410);
    EXPECT_EQ(std::filesystem::file_size(path_), 10U);
    names_->hear(game_);
    speakTo(sink, 4410, 4410);
    EXPECT_GT(std::filesystem::file_size(path_), 10U) << "a program sounds";
    sink.finish();
    EXPECT_EQ(RecordedFile(path_).frames(), 8820U);
    EXPECT_TRUE(sink.problems().empty());
}

TEST_F(VoiceSinkTest, WhereNoProgramSoundsTheMicrophoneIsKeptBesideARecording) {
    std::ofstream(path_) << "a good one";
    VoiceSink sink(
        {.path = path_, .kind = formatNamed("wav"), .mayReplace = true, .programs = names_});
    speakTo(sink, 0, 4410);
    sink.finish();
    EXPECT_EQ(std::filesystem::file_size(path_), 10U);
    const std::string beside = folder_.file("out-microphone-2.wav");
    EXPECT_EQ(RecordedFile(beside).frames(), 4410U);
    ASSERT_EQ(sink.files().size(), 1U);
    EXPECT_EQ(sink.files()[0].path, beside);
    EXPECT_THAT(sink.problems(),
                testing::ElementsAre(path_ +
                                     ": stays as it was, since only the microphone was "
                                     "heard; the new recording is " +
                                     beside));
}

TEST_F(VoiceSinkTest, BesideTheFirstThatSoundsItBeginsAnewAndALaunchersKeepsAFile) {
    VoiceSink sink({.path = path_, .kind = formatNamed("wav"), .programs = names_});
    (void)names_->additionOf(launcher_);
    play(sink, launcher_, 0, 470);
    speakBeside(sink, launcher_, 0, 44'100);
    (void)names_->additionOf(game_);
    play(sink, game_, 22'050, 22'520);
    names_->hear(game_);
    // Its track has sounded, and its mix not yet.
    speakBeside(sink, launcher_, 44'100, 4410);
    play(sink, game_, 44'100, 44'570);
    speakBeside(sink, game_, 48'510, 4410);
    EXPECT_TRUE(std::filesystem::exists(folder_.file("out-microphone-launcher.wav")))
        << "a recorder that is killed now leaves nothing hidden";
    sink.processEnded(launcher_, {});
    speakBeside(sink, game_, 52'920, 4410);
    sink.finish();
    const std::string launchers = folder_.file("out-microphone-launcher.wav");
    EXPECT_EQ(RecordedFile(launchers).frames(), 44'100U + 4410);
    const RecordedFile recorded(path_);
    ASSERT_EQ(recorded.frames(), 26'460U + 4410 + 4410) << "from the game's first frame on";
    EXPECT_EQ(recorded.at(26'459), 0);
    EXPECT_NE(recorded.at(26'462), 0);
    ASSERT_EQ(sink.files().size(), 2U);
    EXPECT_EQ(sink.files()[0].path, path_);
    EXPECT_EQ(sink.files()[0].processId, game_.id);
    EXPECT_EQ(sink.files()[0].beganAt, at(22'050));
    EXPECT_EQ(sink.files()[1].path, launchers);
    EXPECT_EQ(sink.files()[1].processId, launcher_.id);
    EXPECT_TRUE(sink.problems().empty());
}

TEST_F(VoiceSinkTest, WhenItsProgramHasEndedItGoesOnInTheSameFile) {
    VoiceSink sink({.path = path_, .kind = formatNamed("wav"), .programs = names_});
    names_->hear(game_);
    play(sink, game_, 0, 470);
    speakBeside(sink, game_, 0, 4410);
    sink.processEnded(game_, {});
    names_->hear(launcher_);
    play(sink, launcher_, 4410, 4880);
    speakBeside(sink, launcher_, 4410, 4410);
    sink.finish();
    EXPECT_EQ(RecordedFile(path_).frames(), 8820U);
    EXPECT_EQ(sink.files().size(), 1U);
}

TEST_F(VoiceSinkTest, AFileThatCannotBeMadeIsFoundBeforeThereIsSound) {
    EXPECT_TRUE(sink_.open());
    EXPECT_TRUE(folder_.names().empty());
    for (const auto& maximum : {std::optional<double>{}, std::optional<double>{60}}) {
        VoiceSink sink({folder_.file("none/out-microphone.wav"), formatNamed("wav"), maximum});
        EXPECT_FALSE(sink.open());
        EXPECT_THAT(sink.problems(), testing::ElementsAre(testing::EndsWith(
                                         maximum ? "-001.wav: No such file or directory"
                                                 : "microphone.wav: No such file or directory")));
    }
}

}  // namespace
}  // namespace tqrecorder::test
