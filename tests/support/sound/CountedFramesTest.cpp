#include "support/sound/CountedFrames.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace tqtest {
namespace {

Sound counted(Encoding encoding, std::size_t first, std::size_t frames) {
    Sound sound{{48000, 2, encoding}, {}};
    for (std::size_t sample = 2 * first; sample < 2 * (first + frames); ++sample) {
        const float value = countedSample(sample);
        const auto rounded = static_cast<std::int16_t>(std::lround(value * 32767));
        const auto* const bytes = encoding == Encoding::F32
                                      ? reinterpret_cast<const char*>(&value)
                                      : reinterpret_cast<const char*>(&rounded);
        sound.bytes.append(bytes, bytesOf(encoding));
    }
    return sound;
}

class CountedFramesTest : public testing::TestWithParam<Encoding> {};

TEST_P(CountedFramesTest, EachFrameTellsItsNumber) {
    for (const std::size_t first : {0U, 4000U, 1'000'000U, 16'770'000U}) {
        const auto runs = countedRuns(counted(GetParam(), first, 5000));
        EXPECT_EQ(told({runs.at(0)}), "counted " + std::to_string(first) + " to " +
                                          std::to_string(first + runs.at(0).frames - 1));
        EXPECT_EQ(runs.size(), first + 5000 > (1U << 24U) ? 2U : 1U) << "it begins anew";
    }
}

TEST_P(CountedFramesTest, FramesThatAreMissingRepeatedSilentOrMixedShow) {
    Sound sound = counted(GetParam(), 0, 100);
    sound.bytes += counted(GetParam(), 150, 50).bytes + counted(GetParam(), 190, 10).bytes +
                   silence(sound.format, 7).bytes + tone(sound.format, 2, 1000).bytes;
    EXPECT_EQ(told(countedRuns(sound)),
              "counted 0 to 99, counted 150 to 199, counted 190 to 199, silent 8, other 1");
    EXPECT_EQ(longestCount(sound), 100U);
}

TEST_P(CountedFramesTest, SilenceInWhichNoNumberIsMissingIsAPause) {
    const Sound hush = silence(counted(GetParam(), 0, 1).format, 7);
    Sound sound = counted(GetParam(), 0, 100);
    sound.bytes += hush.bytes + counted(GetParam(), 100, 50).bytes + hush.bytes +
                   counted(GetParam(), 160, 10).bytes + hush.bytes;
    EXPECT_EQ(told(withoutPauses(countedRuns(sound))),
              "counted 0 to 149, silent 7, counted 160 to 169, silent 7");
}

INSTANTIATE_TEST_SUITE_P(Encodings, CountedFramesTest,
                         testing::Values(Encoding::S16, Encoding::F32));

}  // namespace
}  // namespace tqtest
