#include "bridges/sdl/SdlFormat.h"

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

}  // namespace tq::bridges
