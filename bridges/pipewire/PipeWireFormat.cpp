#include "bridges/pipewire/PipeWireFormat.h"

#include <spa/param/audio/type-info.h>

#include <cstring>
#include <string_view>

namespace tq::bridges {
namespace {

/// What lies above is heard where it would be below.
tq_speaker speakerAt(std::uint32_t position) {
    switch (position) {
        case SPA_AUDIO_CHANNEL_FL:
            return TQ_SPEAKER_FRONT_LEFT;
        case SPA_AUDIO_CHANNEL_FR:
            return TQ_SPEAKER_FRONT_RIGHT;
        case SPA_AUDIO_CHANNEL_FC:
        case SPA_AUDIO_CHANNEL_FCH:
        case SPA_AUDIO_CHANNEL_TFC:
            return TQ_SPEAKER_CENTER;
        case SPA_AUDIO_CHANNEL_LFE:
        case SPA_AUDIO_CHANNEL_LFE2:
        case SPA_AUDIO_CHANNEL_LLFE:
        case SPA_AUDIO_CHANNEL_RLFE:
        case SPA_AUDIO_CHANNEL_NA:
            return TQ_SPEAKER_SUBWOOFER;
        case SPA_AUDIO_CHANNEL_RL:
        case SPA_AUDIO_CHANNEL_RLC:
        case SPA_AUDIO_CHANNEL_TRL:
            return TQ_SPEAKER_BACK_LEFT;
        case SPA_AUDIO_CHANNEL_RR:
        case SPA_AUDIO_CHANNEL_RRC:
        case SPA_AUDIO_CHANNEL_TRR:
            return TQ_SPEAKER_BACK_RIGHT;
        case SPA_AUDIO_CHANNEL_RC:
        case SPA_AUDIO_CHANNEL_TRC:
            return TQ_SPEAKER_BACK_CENTER;
        case SPA_AUDIO_CHANNEL_SL:
        case SPA_AUDIO_CHANNEL_TSL:
            return TQ_SPEAKER_SIDE_LEFT;
        case SPA_AUDIO_CHANNEL_SR:
        case SPA_AUDIO_CHANNEL_TSR:
            return TQ_SPEAKER_SIDE_RIGHT;
        case SPA_AUDIO_CHANNEL_FLC:
        case SPA_AUDIO_CHANNEL_FLW:
        case SPA_AUDIO_CHANNEL_FLH:
        case SPA_AUDIO_CHANNEL_TFL:
        case SPA_AUDIO_CHANNEL_TFLC:
        case SPA_AUDIO_CHANNEL_BLC:
            return TQ_SPEAKER_FRONT_LEFT_OF_CENTER;
        case SPA_AUDIO_CHANNEL_FRC:
        case SPA_AUDIO_CHANNEL_FRW:
        case SPA_AUDIO_CHANNEL_FRH:
        case SPA_AUDIO_CHANNEL_TFR:
        case SPA_AUDIO_CHANNEL_TFRC:
        case SPA_AUDIO_CHANNEL_BRC:
            return TQ_SPEAKER_FRONT_RIGHT_OF_CENTER;
        default:
            return TQ_SPEAKER_UNKNOWN;
    }
}

}  // namespace

tq_speaker pipeWireSpeaker(const char* channel) noexcept {
    for (const spa_type_info* type = spa_type_audio_channel;
         channel != nullptr && type->name != nullptr; ++type) {
        if (std::string_view(type->name).substr(std::strlen(SPA_TYPE_INFO_AUDIO_CHANNEL_BASE)) ==
            channel) {
            return speakerAt(type->type);
        }
    }
    return TQ_SPEAKER_UNKNOWN;
}

Speakers pipeWireSpeakers(std::span<const std::uint32_t> positions) noexcept {
    return speakersAt(positions, speakerAt);
}

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
