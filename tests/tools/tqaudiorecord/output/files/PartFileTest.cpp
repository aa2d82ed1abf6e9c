// Files that take their names when there is sound for them.

#include "output/files/PartFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <filesystem>
#include <fstream>

#include "common/Descriptor.h"
#include "tools/tqaudiorecord/output/SinkFixture.h"

namespace tqrecorder::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class PartFileTest : public SinkFixture {
  protected:
    [[nodiscard]] MixSink sink(bool mayReplace) {
        return MixSink({path_, formatNamed("wav"), {}, mayReplace}, names_);
    }
    void playSilence(Sink& sink, std::size_t frames) const {
        const std::vector<std::byte> zeros(frames * kMixFormat.frameBytes());
        sink.block(game_, mixBlock(zeros, kStart));
    }
    const std::string path_ = folder_.file("out.wav");
};

TEST_F(PartFileTest, TheNameIsTakenWithTheFirstSound) {
    std::ofstream(path_) << "precious";
    MixSink mix = sink(true);
    ASSERT_TRUE(mix.open());
    playSilence(mix, 4410);
    EXPECT_EQ(contentOf(path_), "precious");
    const std::vector<std::byte> sound = counting(470, 0);
    mix.block(game_, mixBlock(sound, kStart + 100'000));
    mix.tick(600'000);
    EXPECT_EQ(RecordedFile(path_).frames(), 4880U);
    EXPECT_THAT(folder_.names(), ElementsAre("out.wav"));
}

TEST_F(PartFileTest, ARecordingOfNothingOrOfSilenceReplacesNone) {
    std::ofstream(path_) << "precious";
    for (const std::size_t frames : {0U, 4410U}) {
        MixSink mix = sink(true);
        ASSERT_TRUE(mix.open());
        if (frames > 0) {
            playSilence(mix, frames);
        }
        mix.finish();
        EXPECT_TRUE(mix.files().empty());
        EXPECT_EQ(mix.problems().size(), frames > 0 ? 1U : 0U);
        EXPECT_THAT(folder_.names(), ElementsAre("out.wav"));
        EXPECT_EQ(contentOf(path_), "precious");
    }
}

TEST(HasSoundTest, AZeroWithASignIsSilence) {
    const BlockFormat floats{44100, 1, 32, true};
    const std::array<float, 3> zeros{0.0F, -0.0F, 0.0F};
    EXPECT_FALSE(hasSound(std::as_bytes(std::span(zeros)), floats));
    const std::array<float, 2> sound{-0.0F, -1e-30F};
    EXPECT_TRUE(hasSound(std::as_bytes(std::span(sound)), floats));
    const std::array<double, 2> doubles{-0.0, -0.0};
    EXPECT_FALSE(hasSound(std::as_bytes(std::span(doubles)), {44100, 1, 64, true}));
    const std::array<std::int32_t, 1> lowest{INT32_MIN};
    EXPECT_TRUE(hasSound(std::as_bytes(std::span(lowest)), {44100, 1, 32, false}));
}

TEST_F(PartFileTest, SilenceTakesANameThatIsFree) {
    MixSink mix = sink(false);
    ASSERT_TRUE(mix.open());
    playSilence(mix, 4410);
    mix.finish();
    EXPECT_TRUE(mix.problems().empty());
    EXPECT_EQ(RecordedFile(path_).frames(), 4410U);
}

TEST_F(PartFileTest, AFileThatCameMeanwhileStaysAndTheRecordingHasAnotherName) {
    MixSink mix = sink(false);
    ASSERT_TRUE(mix.open());
    std::ofstream(path_) << "precious";
    play(mix, game_, 0, 940);
    mix.finish();
    EXPECT_EQ(contentOf(path_), "precious");
    EXPECT_EQ(RecordedFile(folder_.file("out-2.wav")).frames(), 940U);
    EXPECT_EQ(mix.files().at(0).path, folder_.file("out-2.wav"));
    ASSERT_EQ(mix.problems().size(), 1U);
    EXPECT_THAT(mix.problems()[0], HasSubstr("another file has taken that name meanwhile"));
}

TEST_F(PartFileTest, ASecondRecorderIsToldBeforeAndBehindTheFirstSound) {
    MixSink first = sink(true);
    ASSERT_TRUE(first.open());
    for (const bool hasSound : {false, true}) {
        if (hasSound) {
            play(first, game_, 0, 470);
        }
        EXPECT_THAT(whyNotWritten(path_, true), HasSubstr("another recorder is writing it"));
        MixSink second = sink(true);
        EXPECT_FALSE(second.open());
        EXPECT_THAT(second.problems().at(0), HasSubstr("another recorder is writing it"));
    }
    first.finish();
    EXPECT_EQ(whyNotWritten(path_, true), "");
    EXPECT_THAT(whyNotWritten(path_, false), HasSubstr("--overwrite replaces it"));
}

TEST_F(PartFileTest, WhatAKilledRecorderLeftBesideTheNameIsUsedAgain) {
    std::ofstream(folder_.file(".out.wav.tqaudiorecord")) << std::string(100'000, 'x');
    MixSink mix = sink(false);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    mix.finish();
    EXPECT_EQ(RecordedFile(path_).frames(), 470U);
    EXPECT_THAT(folder_.names(), ElementsAre("out.wav"));
}

TEST_F(PartFileTest, WhatAKilledRecorderLeftBesideANewNameIsInNobodysWay) {
    const std::string beside = folder_.file(".out-launcher.wav.tqaudiorecord");
    for (const bool isAnybodys : {false, true}) {
        std::ofstream(beside) << "left";
        const tqcommon::Descriptor other(::open(beside.c_str(), O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(flock(other.get(), isAnybodys ? LOCK_EX : LOCK_UN), 0);
        PartFile launchers(path_, false);
        ASSERT_EQ(launchers.problem(), "");
        launchers.moveTo(folder_.file("out-launcher.wav"));
        const PartFile games(path_, false);
        EXPECT_EQ(games.problem(), "") << "the game has the name";
        EXPECT_EQ(launchers.takeName(), "");
        EXPECT_EQ(launchers.path(), folder_.file("out-launcher.wav"));
        EXPECT_EQ(std::filesystem::exists(beside), isAnybodys) << "one that is being written stays";
        std::filesystem::remove(folder_.file("out-launcher.wav"));
    }
}

TEST_F(PartFileTest, WhatLiesBesideTheNameButIsNobodysRecordingIsLeftAlone) {
    const std::string document = folder_.file("document");
    const std::string beside = folder_.file(".out.wav.tqaudiorecord");
    std::ofstream(document) << "precious";
    const auto expectRefused = [&] {
        MixSink mix = sink(true);
        EXPECT_FALSE(mix.open());
        EXPECT_THAT(mix.problems().at(0), HasSubstr("is in the way"));
        mix.finish();
        EXPECT_EQ(contentOf(document), "precious");
        EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(beside)));
        std::filesystem::remove(beside);
    };
    std::filesystem::create_symlink("document", beside);
    expectRefused();
    std::filesystem::create_hard_link(document, beside);
    expectRefused();
    std::filesystem::create_directory(beside);
    expectRefused();
}

TEST_F(PartFileTest, TheLongestNamesCanBeWritten) {
    const std::string name = std::string(251, 'n') + ".wav";
    MixSink mix({folder_.file(name), formatNamed("wav"), {}, false}, names_);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    mix.finish();
    EXPECT_THAT(folder_.names(), ElementsAre(name));
}

TEST_F(PartFileTest, ANameThatTheSystemDoesNotTakeIsRefusedBeforeThereIsSound) {
    const std::string tooLong = std::string(252, 'n') + ".wav";
    MixSink mix({folder_.file(tooLong), formatNamed("wav"), {}, true}, names_);
    EXPECT_FALSE(mix.open());
    EXPECT_THAT(mix.problems(), ElementsAre(HasSubstr("File name too long")));
    EXPECT_TRUE(folder_.names().empty());
}

TEST_F(PartFileTest, TheLongestNamesCanBeNumberedLater) {
    const std::string longest = std::string(251, 'n') + ".wav";
    MixSink mix({folder_.file(longest), formatNamed("wav"), {}, false}, names_);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    EXPECT_EQ(split(mix).size(), 1U);
    play(mix, game_, 470, 1410);
    mix.finish();
    EXPECT_TRUE(mix.problems().empty()) << mix.problems()[0];
    const std::string second = std::string(247, 'n') + "-002.wav";
    EXPECT_THAT(folder_.names(), ElementsAre(second, longest));
    EXPECT_EQ(RecordedFile(folder_.file(second)).frames(), 940U);
}

TEST_F(PartFileTest, SoundThatCannotTakeItsNameIsKeptBesideIt) {
    MixSink mix = sink(true);
    ASSERT_TRUE(mix.open());
    playSilence(mix, 470);
    std::filesystem::create_directory(path_);
    play(mix, game_, 470, 940);
    mix.finish();
    EXPECT_THAT(folder_.names(), ElementsAre(".out.wav.tqaudiorecord", "out.wav"));
    const std::string kept = folder_.file(".out.wav.tqaudiorecord");
    EXPECT_EQ(RecordedFile(kept).frames(), 940U);
    EXPECT_TRUE(mix.files().empty());
    EXPECT_THAT(mix.problems(), ElementsAre(testing::AllOf(HasSubstr("out.wav: Is a directory"),
                                                           HasSubstr("kept as " + kept))));
}

TEST_F(PartFileTest, WhatIsKeptIsNotWrittenOverByTheNext) {
    const auto record = [this](std::size_t frames) {
        MixSink mix = sink(true);
        EXPECT_TRUE(mix.open());
        std::filesystem::create_directory(path_);
        play(mix, game_, 0, frames);
        EXPECT_THAT(whyNotWritten(path_, true), HasSubstr("another recorder is writing it"));
        mix.finish();
        EXPECT_THAT(mix.problems(), ElementsAre(HasSubstr("kept as ")));
        std::filesystem::remove(path_);
    };
    record(940);
    record(1410);
    MixSink mix = sink(true);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    mix.finish();
    EXPECT_THAT(mix.problems(), testing::IsEmpty());
    EXPECT_THAT(folder_.names(),
                ElementsAre(".out.wav.tqaudiorecord", ".out.wav.tqaudiorecord-2", "out.wav"));
    EXPECT_EQ(RecordedFile(folder_.file(".out.wav.tqaudiorecord")).frames(), 940U);
    EXPECT_EQ(RecordedFile(folder_.file(".out.wav.tqaudiorecord-2")).frames(), 1410U);
    EXPECT_EQ(RecordedFile(path_).frames(), 470U);
}

TEST_F(PartFileTest, ALinkStaysALink) {
    std::filesystem::create_directory(folder_.file("disk"));
    std::ofstream(folder_.file("disk/real.wav")) << "before";
    std::filesystem::create_symlink("disk/real.wav", path_);
    MixSink mix = sink(true);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    mix.finish();
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
    EXPECT_EQ(RecordedFile(folder_.file("disk/real.wav")).frames(), 470U);
}

TEST_F(PartFileTest, ALinkToNothingStaysALink) {
    std::filesystem::create_symlink("real.wav", path_);
    MixSink mix = sink(false);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    mix.finish();
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
    EXPECT_EQ(RecordedFile(folder_.file("real.wav")).frames(), 470U);
}

TEST_F(PartFileTest, AFileThatIsDeletedMeanwhileIsAProblemAndNotListed) {
    MixSink mix = sink(false);
    ASSERT_TRUE(mix.open());
    play(mix, game_, 0, 470);
    std::filesystem::remove(path_);
    play(mix, game_, 470, 940);
    mix.finish();
    EXPECT_TRUE(mix.files().empty());
    ASSERT_EQ(mix.problems().size(), 1U);
    EXPECT_THAT(mix.problems()[0], HasSubstr("was deleted, moved or replaced"));
}

}  // namespace
}  // namespace tqrecorder::test
