#include "bridges/sdl/SdlFormat.h"

#include <TQAudioRecord/tq_source.h>

#include <bit>

namespace tq::bridges {

NativeSample sdlSample(SDL_AudioFormat format) noexcept {
    using enum NativeSample;
    constexpr bool kIsLittle = std::endian::native == std::endian::little;
    switch (format) {
        case AUDIO_U8:
            return kU8;
        case AUDIO_S8:
            return kS8;
        case AUDIO_U16LSB:
            return kIsLittle ? kU16 : kU16Swapped;
        case AUDIO_U16MSB:
            return kIsLittle ? kU16Swapped : kU16;
        case AUDIO_S16LSB:
            return kIsLittle ? kS16 : kS16Swapped;
        case AUDIO_S16MSB:
            return kIsLittle ? kS16Swapped : kS16;
        case AUDIO_S32LSB:
            return kIsLittle ? kS32 : kS32Swapped;
        case AUDIO_S32MSB:
            return kIsLittle ? kS32Swapped : kS32;
        case AUDIO_F32LSB:
            return kIsLittle ? kF32 : kF32Swapped;
        case AUDIO_F32MSB:
            return kIsLittle ? kF32Swapped : kF32;
        default:
            return kNotPcm;
    }
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
