#include "bridges/pipewire/PipeWireFormat.h"

namespace tq::bridges {

PipeWireSample pipeWireSample(spa_audio_format format) noexcept {
    using enum NativeSample;
    switch (format) {
        case SPA_AUDIO_FORMAT_U8:
            return {kU8, false};
        case SPA_AUDIO_FORMAT_S8:
            return {kS8, false};
        case SPA_AUDIO_FORMAT_S16:
            return {kS16, false};
        case SPA_AUDIO_FORMAT_S16_OE:
            return {kS16Swapped, false};
        case SPA_AUDIO_FORMAT_U16:
            return {kU16, false};
        case SPA_AUDIO_FORMAT_U16_OE:
            return {kU16Swapped, false};
        case SPA_AUDIO_FORMAT_S24:
            return {kS24In3, false};
        case SPA_AUDIO_FORMAT_S24_OE:
            return {kS24In3Swapped, false};
        case SPA_AUDIO_FORMAT_U24:
            return {kU24In3, false};
        case SPA_AUDIO_FORMAT_U24_OE:
            return {kU24In3Swapped, false};
        case SPA_AUDIO_FORMAT_S24_32:
            return {kS24In4, false};
        case SPA_AUDIO_FORMAT_S24_32_OE:
            return {kS24In4Swapped, false};
        case SPA_AUDIO_FORMAT_U24_32:
            return {kU24In4, false};
        case SPA_AUDIO_FORMAT_U24_32_OE:
            return {kU24In4Swapped, false};
        case SPA_AUDIO_FORMAT_S32:
            return {kS32, false};
        case SPA_AUDIO_FORMAT_S32_OE:
            return {kS32Swapped, false};
        case SPA_AUDIO_FORMAT_U32:
            return {kU32, false};
        case SPA_AUDIO_FORMAT_U32_OE:
            return {kU32Swapped, false};
        case SPA_AUDIO_FORMAT_F32:
            return {kF32, false};
        case SPA_AUDIO_FORMAT_F32_OE:
            return {kF32Swapped, false};
        case SPA_AUDIO_FORMAT_F64:
            return {kF64, false};
        case SPA_AUDIO_FORMAT_F64_OE:
            return {kF64Swapped, false};
        case SPA_AUDIO_FORMAT_U8P:
            return {kU8, true};
        case SPA_AUDIO_FORMAT_S8P:
            return {kS8, true};
        case SPA_AUDIO_FORMAT_S16P:
            return {kS16, true};
        case SPA_AUDIO_FORMAT_S24P:
            return {kS24In3, true};
        case SPA_AUDIO_FORMAT_S24_32P:
            return {kS24In4, true};
        case SPA_AUDIO_FORMAT_S32P:
            return {kS32, true};
        case SPA_AUDIO_FORMAT_F32P:
            return {kF32, true};
        case SPA_AUDIO_FORMAT_F64P:
            return {kF64, true};
        default:
            return {};
    }
}

}  // namespace tq::bridges
