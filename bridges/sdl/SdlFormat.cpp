#include "bridges/sdl/SdlFormat.h"

#include <TQAudioRecord/tq_source.h>

#include <array>
#include <bit>

namespace tq::bridges {

namespace {

using enum NativeSample;
constexpr auto kLittle = std::endian::little;
constexpr auto kBig = std::endian::big;

constexpr auto kSamples = std::to_array<Meaning<SDL_AudioFormat, NativeSample>>({
    {AUDIO_U8, kU8},
    {AUDIO_S8, kS8},
    {AUDIO_U16LSB, inOrder(kU16, kLittle)},
    {AUDIO_U16MSB, inOrder(kU16, kBig)},
    {AUDIO_S16LSB, inOrder(kS16, kLittle)},
    {AUDIO_S16MSB, inOrder(kS16, kBig)},
    {AUDIO_S32LSB, inOrder(kS32, kLittle)},
    {AUDIO_S32MSB, inOrder(kS32, kBig)},
    {AUDIO_F32LSB, inOrder(kF32, kLittle)},
    {AUDIO_F32MSB, inOrder(kF32, kBig)},
});

}  // namespace

NativeSample sdlSample(SDL_AudioFormat format) noexcept {
    return meaningOf(format, kSamples, NativeSample::kNotPcm);
}

Speakers sdlSpeakers(unsigned channels) noexcept {
    constexpr tq_speaker kLeft = TQ_SPEAKER_FRONT_LEFT;
    constexpr tq_speaker kRight = TQ_SPEAKER_FRONT_RIGHT;
    constexpr tq_speaker kCenter = TQ_SPEAKER_CENTER;
    constexpr tq_speaker kLow = TQ_SPEAKER_SUBWOOFER;
    constexpr tq_speaker kBackLeft = TQ_SPEAKER_BACK_LEFT;
    constexpr tq_speaker kBackRight = TQ_SPEAKER_BACK_RIGHT;
    constexpr tq_speaker kSideLeft = TQ_SPEAKER_SIDE_LEFT;
    constexpr tq_speaker kSideRight = TQ_SPEAKER_SIDE_RIGHT;
    switch (channels) {
        case 3:
            return {kLeft, kRight, kLow};
        case 4:
            return {kLeft, kRight, kBackLeft, kBackRight};
        case 5:
            return {kLeft, kRight, kLow, kBackLeft, kBackRight};
        case 6:
            return {kLeft, kRight, kCenter, kLow, kBackLeft, kBackRight};
        case 7:
            return {kLeft, kRight, kCenter, kLow, TQ_SPEAKER_BACK_CENTER, kSideLeft, kSideRight};
        case 8:
            return {kLeft, kRight, kCenter, kLow, kBackLeft, kBackRight, kSideLeft, kSideRight};
        default:
            return {};
    }
}

}  // namespace tq::bridges
