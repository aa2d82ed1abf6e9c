#include "view/Level.h"

#include <gtest/gtest.h>

#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {
namespace {

TEST(LevelTest, IsTheSameForEveryFormat) {
    const auto check = [](const std::vector<std::byte>& bytes, const BlockFormat& format) {
        Level level;
        level.add(bytes, format);
        EXPECT_NEAR(level.peak(), 0.5, 0.001) << format.bitsPerChannel;
        EXPECT_NEAR(level.rms(), 0.5 / std::numbers::sqrt2, 0.001) << format.bitsPerChannel;
    };
    check(mixTone(441, 44100), kMixFormat);
    const BlockFormat real{44100, 1, 32, true};
    check(tone<float>(441, real, 44100), real);
    const BlockFormat fine{44100, 1, 64, true};
    check(tone<double>(441, fine, 44100), fine);
    // 24 and 32 bits, made of 16.
    const auto samples = tone<std::int16_t>(441, {44100, 1, 16, false}, 44100);
    for (const std::uint32_t bits : {24U, 32U}) {
        std::vector<std::byte> wide;
        for (std::size_t place = 0; place < samples.size(); place += 2) {
            wide.insert(wide.end(), bits / 8 - 2, std::byte{0});
            wide.insert(wide.end(), {samples[place], samples[place + 1]});
        }
        check(wide, {44100, 1, bits, false});
    }
}

TEST(LevelTest, CountsWhatIsNoNumberAsSilence) {
    const std::array<float, 3> samples{NAN, INFINITY, 0.25F};
    Level level;
    level.add(std::as_bytes(std::span(samples)), {44100, 1, 32, true});
    EXPECT_EQ(level.peak(), 0.25);
    EXPECT_EQ(decibelText(level.peak()), "-12.0");
    EXPECT_EQ(decibelText(0), "-inf");
    EXPECT_EQ(decibelText(1), "0.0");
}

}  // namespace
}  // namespace tqrecorder::test
