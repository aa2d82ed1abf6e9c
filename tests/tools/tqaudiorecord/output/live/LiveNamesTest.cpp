#include "output/live/LiveNames.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace tqrecorder {
namespace {

TEST(LiveNames, AreThoseOfProgramAndTrackAndTheSameAtEveryLaunch) {
    for (int launch = 0; launch < 2; ++launch) {
        LiveNames names;
        const LiveName mix = names.take("game", "");
        EXPECT_EQ(mix.name, "tqaudiorecord.game.mix");
        EXPECT_EQ(mix.description, "game: mix");
        EXPECT_EQ(names.take("game", "pulse-1 Music").name, "tqaudiorecord.game.pulse-1_Music");
    }
}

TEST(LiveNames, NoTwoSourcesShareOneUntilItIsGivenBack) {
    LiveNames names;
    const LiveName first = names.take("game", "music");
    const LiveName second = names.take("game", "music");
    EXPECT_EQ(second.name, "tqaudiorecord.game.music.2");
    EXPECT_EQ(second.description, "game: music (2)");
    names.giveBack(first);
    EXPECT_EQ(names.take("game", "music").name, first.name);
}

TEST(LiveNames, AreShortEnoughForEveryServer) {
    LiveNames names;
    constexpr std::size_t kLongest = 128;
    for (int i = 0; i < 30; ++i) {
        EXPECT_LE(names.take(std::string(200, 'p'), std::string(200, 'u')).name.size(), kLongest);
    }
}

TEST(LiveNames, OfOtherScriptsAreApartAndOfLettersThatServersTake) {
    LiveNames names;
    const LiveName game = names.take("Игра", "");
    EXPECT_EQ(game.name, "tqaudiorecord.d098d0b3d180d0b0.mix");
    EXPECT_EQ(game.description, "Игра: mix");
    EXPECT_EQ(names.take("Звук", "").name, "tqaudiorecord.d097d0b2d183d0ba.mix");
    constexpr std::size_t kLongest = 128;
    std::string letters;
    for (int i = 0; i < 60; ++i) {
        letters += "音";
    }
    EXPECT_LE(names.take(letters, letters).name.size(), kLongest);
}

TEST(LiveNames, NoControlCharactersReachTheServer) {
    LiveNames names;
    const LiveName name = names.take("ga\nme", "mu\x1b[31msic");
    for (const char c : name.name + name.description) {
        EXPECT_GE(c, ' ');
    }
}

template <typename Sample, std::size_t Count>
std::vector<float> floatsOf(const BlockFormat& format, const std::array<Sample, Count>& samples) {
    std::vector<float> floats;
    EXPECT_TRUE(toFloats(format, std::as_bytes(std::span(samples)), floats));
    return floats;
}

TEST(LiveSamples, IntegersAreOfFullScale) {
    EXPECT_EQ(floatsOf({48000, 1, 8, false}, std::array<std::int8_t, 2>{-128, 64}),
              (std::vector<float>{-1, 0.5F}));
    EXPECT_EQ(floatsOf({48000, 1, 16, false}, std::array<std::int16_t, 2>{-32768, 16384}),
              (std::vector<float>{-1, 0.5F}));
    EXPECT_EQ(floatsOf({48000, 1, 24, false},
                       std::array<std::uint8_t, 6>{0x00, 0x00, 0x80, 0x01, 0x00, 0x00}),
              (std::vector<float>{-1, 0x1p-23F}));
    EXPECT_EQ(floatsOf({48000, 1, 32, false}, std::array<std::int32_t, 2>{INT32_MIN, 1 << 30}),
              (std::vector<float>{-1, 0.5F}));
}

TEST(LiveSamples, FloatsStayAsTheyAreAndWhatIsUnknownIsRefused) {
    EXPECT_EQ(floatsOf({48000, 1, 32, true}, std::array<float, 2>{1.5F, -0.25F}),
              (std::vector<float>{1.5F, -0.25F}));
    EXPECT_EQ(floatsOf({48000, 1, 64, true}, std::array<double, 1>{0.125}),
              (std::vector<float>{0.125F}));
    std::vector<float> floats;
    EXPECT_FALSE(toFloats({48000, 1, 20, false}, {}, floats));
}

}  // namespace
}  // namespace tqrecorder
