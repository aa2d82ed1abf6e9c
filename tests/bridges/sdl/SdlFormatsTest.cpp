#include <utility>

#include "bridges/core/SampleLayouts.h"
#include "bridges/sdl/SdlFixture.h"

// Every layout of samples that SDL knows, and devices whose clock is not the one of the tracks.

namespace bridgetests {
namespace {

using tq::bridges::NativeSample;

/// Parts of a million by which the sound device is faster than the one of the tracks.
class SdlDrift : public SdlCalls, public testing::WithParamInterface<int> {};

TEST_P(SdlDrift, LosesNothingAndLeavesFewHoles) {
    constexpr std::size_t kSeconds = 120;
    const Sound sound = markedNoise({}, kSeconds * 48000);
    source.bytes = sound.bytes;
    const SDL_AudioDeviceID id = open(spec(&source));
    (void)play(id, 1);
    awaitReport(firstName());
    const double faster = 1 + 1e-6 * GetParam();
    for (double due = 0; source.place < source.bytes.size(); due += kFrames * faster) {
        for (; due >= kBuffer; due -= kBuffer) {
            (void)sdl.play(id);
        }
        pump();
    }
    close(id);
    const auto found = differences(sound, heard());
    // A device that is slow runs dry once for each margin that it has lost: 144 ms are two or
    // three.
    EXPECT_LE(found.size(), GetParam() < 0 ? 4U : 0U);
    for (const std::string& each : found) {
        EXPECT_NE(each.find("frames of silence inserted"), std::string::npos) << each;
    }
}

INSTANTIATE_TEST_SUITE_P(Ppm, SdlDrift, testing::Values(-1200, -1000, 0, 1000));

/// What SDL calls a layout, and what it is on a machine whose lowest byte is the first.
using Layout = std::pair<SDL_AudioFormat, NativeSample>;
class SdlLayouts : public SdlCalls, public testing::WithParamInterface<Layout> {};

TEST_P(SdlLayouts, AreOnTheTrackWithTheirValuesAndPlayedAsTheyAre) {
    const auto [format, sample] = GetParam();
    const NoiseIn sound(sample);
    source.bytes = sound.written();
    const SDL_AudioDeviceID id = open(spec(&source, format));
    std::string played;
    while (source.place != source.bytes.size()) {
        played += sdl.play(id);
    }
    EXPECT_EQ(played.substr(0, source.bytes.size()), source.bytes);
    playOn();
    close(id);
    const Sound all = heard(sound.heardAs());
    sound.expectIs(all.part(0, NoiseIn::kFrames));
}

INSTANTIATE_TEST_SUITE_P(All, SdlLayouts,
                         testing::Values(Layout{AUDIO_U8, NativeSample::kU8},
                                         Layout{AUDIO_S8, NativeSample::kS8},
                                         Layout{AUDIO_U16LSB, NativeSample::kU16},
                                         Layout{AUDIO_U16MSB, NativeSample::kU16Swapped},
                                         Layout{AUDIO_S16LSB, NativeSample::kS16},
                                         Layout{AUDIO_S16MSB, NativeSample::kS16Swapped},
                                         Layout{AUDIO_S32LSB, NativeSample::kS32},
                                         Layout{AUDIO_S32MSB, NativeSample::kS32Swapped},
                                         Layout{AUDIO_F32LSB, NativeSample::kF32},
                                         Layout{AUDIO_F32MSB, NativeSample::kF32Swapped}));

}  // namespace
}  // namespace bridgetests
