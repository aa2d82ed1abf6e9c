#include "bridges/alsa/AlsaFormat.h"

#include <TQAudioRecord/tq_source.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "bridges/alsa/AlsaAreas.h"

namespace tq::bridges {
namespace {

TEST(AlsaFormatTest, CodedSoundIsKnownByItsFormatAndByItsDevice) {
    EXPECT_EQ(alsaSample(SND_PCM_FORMAT_MU_LAW), NativeSample::kNotPcm);
    EXPECT_EQ(alsaSample(SND_PCM_FORMAT_IEC958_SUBFRAME_LE), NativeSample::kNotPcm);
    EXPECT_EQ(alsaSample(SND_PCM_FORMAT_S24_3LE), NativeSample::kS24In3);
    EXPECT_TRUE(isPassThrough("iec958:AES0=0x6"));
    EXPECT_TRUE(isPassThrough("hdmi:CARD=0,DEV=1,AES0=6,AES1=0x82"));
    EXPECT_TRUE(isPassThrough("iec958:{AES0 0x02 AES1 0x82}"));
    EXPECT_FALSE(isPassThrough("iec958:AES0=0x4"));
    EXPECT_FALSE(isPassThrough("iec958"));
    EXPECT_FALSE(isPassThrough("AES0"));
    EXPECT_FALSE(isPassThrough("default"));
}

TEST(AlsaFormatTest, TheUsualOrderHasTheMiddleBehindTheRear) {
    EXPECT_EQ(usualAlsaSpeakers(8),
              (Speakers{TQ_SPEAKER_FRONT_LEFT, TQ_SPEAKER_FRONT_RIGHT, TQ_SPEAKER_BACK_LEFT,
                        TQ_SPEAKER_BACK_RIGHT, TQ_SPEAKER_CENTER, TQ_SPEAKER_SUBWOOFER,
                        TQ_SPEAKER_SIDE_LEFT, TQ_SPEAKER_SIDE_RIGHT}));
    EXPECT_EQ(usualAlsaSpeakers(5)[4], TQ_SPEAKER_CENTER);
    EXPECT_EQ(usualAlsaSpeakers(3),
              (Speakers{TQ_SPEAKER_FRONT_LEFT, TQ_SPEAKER_FRONT_RIGHT, TQ_SPEAKER_UNKNOWN}));
    EXPECT_EQ(usualAlsaSpeakers(7)[6], TQ_SPEAKER_UNKNOWN);
    EXPECT_EQ(usualAlsaSpeakers(2), Speakers{});
    EXPECT_EQ(usualAlsaSpeakers(9), Speakers{});
}

TEST(AlsaAreasTest, PlanesAndFramesAreReadAndWrittenWhereTheyLie) {
    std::array<std::int16_t, 8> left{0, 1, 2, 3, 4, 5, 6, 7};
    std::array<std::int16_t, 16> pairs{};
    for (std::size_t i = 0; i < 8; ++i) {
        pairs[2 * i + 1] = static_cast<std::int16_t>(10 * i);
    }
    const std::array<snd_pcm_channel_area_t, 2> areas{
        {{left.data(), 0, 16}, {pairs.data(), 16, 32}}};
    const AlsaPiece piece{areas.data(), 2, 2, 3, 4};
    ASSERT_TRUE(isReachable(piece));
    std::array<std::int16_t, 8> frames{};
    readPiece(piece, frames.data());
    EXPECT_EQ(frames, (std::array<std::int16_t, 8>{3, 30, 4, 40, 5, 50, 6, 60}));
    frames.fill(-1);
    writePiece(piece, frames.data(), 2);
    EXPECT_EQ(left, (std::array<std::int16_t, 8>{0, 1, 2, 3, 4, -1, -1, 7}));
    EXPECT_EQ(pairs[9], 40);
    EXPECT_EQ(pairs[11], -1);
    EXPECT_EQ(pairs[13], -1);
    EXPECT_EQ(pairs[15], 70);
    EXPECT_EQ(pairs[10], 0);
}

TEST(AlsaAreasTest, SamplesThatBeginInsideAByteAreLeftAlone) {
    std::array<char, 8> memory{};
    const snd_pcm_channel_area_t area{memory.data(), 4, 12};
    EXPECT_FALSE(isReachable({&area, 1, 2, 0, 1}));
    EXPECT_FALSE(isReachable({nullptr, 1, 2, 0, 1}));
}

}  // namespace
}  // namespace tq::bridges
