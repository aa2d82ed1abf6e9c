#include "support/sound/Sound.h"

#include <gtest/gtest.h>

#include "support/TemporaryFolder.h"
#include "support/sound/Comparison.h"

namespace tqtest {
namespace {

using testing::TestWithParam;
using testing::Values;

class SoundFormatTest : public TestWithParam<Encoding> {};

TEST_P(SoundFormatTest, AFileGivesBackWhatWasWritten) {
    const TemporaryFolder folder;
    const Sound sound = markedNoise({.rate = 44100, .channels = 3, .encoding = GetParam()}, 1000);
    writeWav(sound, folder.file("a.wav"));
    const Sound read = readWav(folder.file("a.wav"));
    EXPECT_EQ(read.format, sound.format);
    EXPECT_EQ(read.bytes, sound.bytes);
}

TEST_P(SoundFormatTest, NoiseIsNeverSilentAndNeverAboveHalf) {
    const Sound sound = markedNoise({.encoding = GetParam()}, 20000);
    for (std::size_t i = 0; i < sound.frames(); ++i) {
        ASSERT_NE(sound.value(i, 0), 0) << i;
        ASSERT_NE(sound.value(i, 1), 0) << i;
        ASSERT_LE(std::abs(sound.value(i, 0)), 0.5) << i;
    }
}

TEST_P(SoundFormatTest, AToneHasItsFrequencyAndSilenceAroundItIsCounted) {
    const SoundFormat format{.encoding = GetParam()};
    Sound sound = silence(format, 100);
    sound.bytes += tone(format, 4800, 1000).bytes + silence(format, 50).bytes;
    EXPECT_NEAR(frequencyOf(sound), 1000, 1);
    EXPECT_EQ(sound.silenceAtStart(), 101U) << "a sine begins with a zero";
    EXPECT_EQ(sound.silenceAtEnd(), 50U);
    EXPECT_EQ(sound.trimmed().frames(), 4799U);
}

INSTANTIATE_TEST_SUITE_P(All, SoundFormatTest,
                         Values(Encoding::U8, Encoding::S16, Encoding::S24, Encoding::S32,
                                Encoding::F32));

class ComparisonTest : public testing::Test {
  protected:
    const Sound noise_ = markedNoise({}, 1000);

    /// The noise with what is between two frames replaced.
    [[nodiscard]] Sound with(std::size_t from, std::size_t count, const std::string& other) const {
        Sound sound = noise_;
        sound.bytes.replace(from * 4, count * 4, other);
        return sound;
    }
    [[nodiscard]] std::string said(const Sound& got) const {
        std::string all;
        for (const std::string& line : differences(noise_, got)) {
            all += line + ";";
        }
        return all;
    }
};

TEST_F(ComparisonTest, EqualSoundsHaveNoDifference) {
    EXPECT_EQ(said(noise_), "");
}

TEST_F(ComparisonTest, TellsWhichFramesAreMissing) {
    EXPECT_EQ(said(with(300, 7, "")), "7 frames missing at frame 300, where 300 is due;");
}

TEST_F(ComparisonTest, TellsWhichFramesComeTwice) {
    EXPECT_EQ(said(with(300, 0, noise_.part(280, 20).bytes)),
              "20 frames played before return at frame 300, where 300 is due;");
}

TEST_F(ComparisonTest, TellsAHoleFromOtherSoundInserted) {
    EXPECT_EQ(said(with(300, 0, std::string(400, '\0'))),
              "100 frames of silence inserted at frame 300, where 300 is due;");
    EXPECT_EQ(said(with(300, 0, std::string(400, 'x'))),
              "100 frames inserted at frame 300, where 300 is due;");
}

TEST_F(ComparisonTest, TellsHowManyFramesAreChanged) {
    EXPECT_EQ(said(with(300, 5, std::string(20, 'x'))),
              "5 frames changed at frame 300, where 300 is due;");
}

TEST_F(ComparisonTest, TellsWhatTheEndLacksOrHasTooMuch) {
    EXPECT_EQ(said(with(990, 10, "")),
              "10 frames missing at the end at frame 990, where 990 is due;");
    EXPECT_EQ(said(with(1000, 0, std::string(40, 'x'))),
              "10 frames too many at the end at frame 1000, where 1000 is due;");
}

TEST_F(ComparisonTest, TellsAnotherFormat) {
    EXPECT_EQ(said({.format = {.rate = 44100}, .bytes = noise_.bytes}),
              "other format: 44100 Hz, 2 channels, s16le instead of 48000 Hz, 2 channels, s16le;");
}

TEST_F(ComparisonTest, TheLargestDifferenceIsOfSamplesAtALevel) {
    const Sound quiet = tone({.encoding = Encoding::F32}, 1000, 100);
    EXPECT_EQ(largestDifference(quiet, quiet), 0);
    EXPECT_NEAR(largestDifference(quiet, quiet, 0.5), 0.25, 0.001) << "half of its peak";
    EXPECT_LE(largestDifference(quiet, tone({}, 1000, 100)), 1.0 / 32768) << "16 bits";
    EXPECT_EQ(largestDifference(noise_, with(300, 1, "xxxx"), 1, 301), 0) << "from a frame on";
    EXPECT_GT(largestDifference(noise_, with(300, 1, "xxxx"), 1, 300), 0);
    EXPECT_GT(largestDifference(noise_, noise_.part(0, 999)), 2) << "not as long";
}

TEST_F(ComparisonTest, ARecordingIsAlignedByItsFirstSound) {
    Sound wanted = silence({}, 30);
    wanted.bytes += noise_.bytes;
    Sound got = silence({}, 777);
    got.bytes += noise_.bytes + std::string(400, '\0');
    EXPECT_EQ(beginningOf(wanted, got), 747U);
    EXPECT_EQ(alignedTo(wanted, got).bytes, wanted.bytes);
    EXPECT_EQ(beginningOf(wanted, silence({}, 100)), 100U) << "nothing of it is there";
}

}  // namespace
}  // namespace tqtest
