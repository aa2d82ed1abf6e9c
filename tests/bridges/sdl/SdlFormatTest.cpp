#include "bridges/sdl/SdlFormat.h"

#include <SDL_endian.h>
#include <gtest/gtest.h>

namespace tq::bridges {
namespace {

TEST(SdlFormatTest, EachOfItsFormatsIsASampleOfItsSize) {
    for (const int each : {AUDIO_U8, AUDIO_S8, AUDIO_U16LSB, AUDIO_U16MSB, AUDIO_S16LSB,
                           AUDIO_S16MSB, AUDIO_S32LSB, AUDIO_S32MSB, AUDIO_F32LSB, AUDIO_F32MSB}) {
        const auto format = static_cast<SDL_AudioFormat>(each);
        EXPECT_EQ(8 * bytesPerSample(sdlSample(format)), SDL_AUDIO_BITSIZE(format)) << format;
    }
}

TEST(SdlFormatTest, TheMachinesOwnOrderIsNotSwapped) {
    EXPECT_EQ(sdlSample(AUDIO_U16SYS), NativeSample::kU16);
    EXPECT_EQ(sdlSample(AUDIO_S16SYS), NativeSample::kS16);
    EXPECT_EQ(sdlSample(AUDIO_S32SYS), NativeSample::kS32);
    EXPECT_EQ(sdlSample(AUDIO_F32SYS), NativeSample::kF32);
    constexpr SDL_AudioFormat kOther = SDL_BYTEORDER == SDL_LIL_ENDIAN ? 0x1000 : 0;
    EXPECT_EQ(sdlSample(AUDIO_U16LSB | kOther), NativeSample::kU16Swapped);
    EXPECT_EQ(sdlSample(AUDIO_S16LSB | kOther), NativeSample::kS16Swapped);
    EXPECT_EQ(sdlSample(AUDIO_S32LSB | kOther), NativeSample::kS32Swapped);
    EXPECT_EQ(sdlSample(AUDIO_F32LSB | kOther), NativeSample::kF32Swapped);
}

TEST(SdlFormatTest, EightBitsHaveASignOrNone) {
    EXPECT_EQ(sdlSample(AUDIO_U8), NativeSample::kU8);
    EXPECT_EQ(sdlSample(AUDIO_S8), NativeSample::kS8);
}

TEST(SdlFormatTest, AnUnknownNumberIsNotPcm) {
    EXPECT_EQ(sdlSample(0), NativeSample::kNotPcm);
    EXPECT_EQ(sdlSample(0x8018), NativeSample::kNotPcm);
}

}  // namespace
}  // namespace tq::bridges
