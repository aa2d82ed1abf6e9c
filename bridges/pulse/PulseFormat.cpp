#include "bridges/pulse/PulseFormat.h"

#include <TQAudioRecord/tq_source.h>

namespace tq::bridges {
namespace {

/// What lies above is heard where it would be below.
tq_speaker speakerAt(pa_channel_position_t position) {
    switch (position) {
        case PA_CHANNEL_POSITION_FRONT_LEFT:
            return TQ_SPEAKER_FRONT_LEFT;
        case PA_CHANNEL_POSITION_FRONT_RIGHT:
            return TQ_SPEAKER_FRONT_RIGHT;
        case PA_CHANNEL_POSITION_FRONT_CENTER:
        case PA_CHANNEL_POSITION_TOP_FRONT_CENTER:
            return TQ_SPEAKER_CENTER;
        case PA_CHANNEL_POSITION_LFE:
            return TQ_SPEAKER_SUBWOOFER;
        case PA_CHANNEL_POSITION_REAR_LEFT:
        case PA_CHANNEL_POSITION_TOP_REAR_LEFT:
            return TQ_SPEAKER_BACK_LEFT;
        case PA_CHANNEL_POSITION_REAR_RIGHT:
        case PA_CHANNEL_POSITION_TOP_REAR_RIGHT:
            return TQ_SPEAKER_BACK_RIGHT;
        case PA_CHANNEL_POSITION_REAR_CENTER:
        case PA_CHANNEL_POSITION_TOP_REAR_CENTER:
            return TQ_SPEAKER_BACK_CENTER;
        case PA_CHANNEL_POSITION_SIDE_LEFT:
            return TQ_SPEAKER_SIDE_LEFT;
        case PA_CHANNEL_POSITION_SIDE_RIGHT:
            return TQ_SPEAKER_SIDE_RIGHT;
        case PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER:
        case PA_CHANNEL_POSITION_TOP_FRONT_LEFT:
            return TQ_SPEAKER_FRONT_LEFT_OF_CENTER;
        case PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER:
        case PA_CHANNEL_POSITION_TOP_FRONT_RIGHT:
            return TQ_SPEAKER_FRONT_RIGHT_OF_CENTER;
        default:
            return TQ_SPEAKER_UNKNOWN;
    }
}

}  // namespace

Speakers pulseSpeakers(const pa_channel_map& map) noexcept {
    return speakersAt(std::span<const pa_channel_position_t>(map.map).first(map.channels),
                      speakerAt);
}

NativeSample pulseSample(pa_sample_format_t format) noexcept {
    using enum NativeSample;
    // NE is this machine's byte order and RE the other one.
    switch (format) {
        case PA_SAMPLE_U8:
            return kU8;
        case PA_SAMPLE_S16NE:
            return kS16;
        case PA_SAMPLE_S16RE:
            return kS16Swapped;
        case PA_SAMPLE_S24NE:
            return kS24In3;
        case PA_SAMPLE_S24RE:
            return kS24In3Swapped;
        case PA_SAMPLE_S24_32NE:
            return kS24In4;
        case PA_SAMPLE_S24_32RE:
            return kS24In4Swapped;
        case PA_SAMPLE_S32NE:
            return kS32;
        case PA_SAMPLE_S32RE:
            return kS32Swapped;
        case PA_SAMPLE_FLOAT32NE:
            return kF32;
        case PA_SAMPLE_FLOAT32RE:
            return kF32Swapped;
        default:
            return kNotPcm;
    }
}

}  // namespace tq::bridges
