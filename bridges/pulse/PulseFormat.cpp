#include "bridges/pulse/PulseFormat.h"

#include <TQAudioRecord/tq_source.h>

#include <array>

namespace tq::bridges {
namespace {

using enum NativeSample;

// NE is this machine's byte order and RE the other one.
constexpr auto kSamples = std::to_array<Meaning<pa_sample_format_t, NativeSample>>({
    {PA_SAMPLE_U8, kU8},
    {PA_SAMPLE_S16NE, kS16},
    {PA_SAMPLE_S16RE, kS16Swapped},
    {PA_SAMPLE_S24NE, kS24In3},
    {PA_SAMPLE_S24RE, kS24In3Swapped},
    {PA_SAMPLE_S24_32NE, kS24In4},
    {PA_SAMPLE_S24_32RE, kS24In4Swapped},
    {PA_SAMPLE_S32NE, kS32},
    {PA_SAMPLE_S32RE, kS32Swapped},
    {PA_SAMPLE_FLOAT32NE, kF32},
    {PA_SAMPLE_FLOAT32RE, kF32Swapped},
});

/// What lies above is heard where it would be below.
constexpr auto kSpeakers = std::to_array<Meaning<pa_channel_position_t, tq_speaker>>({
    {PA_CHANNEL_POSITION_FRONT_LEFT, TQ_SPEAKER_FRONT_LEFT},
    {PA_CHANNEL_POSITION_FRONT_RIGHT, TQ_SPEAKER_FRONT_RIGHT},
    {PA_CHANNEL_POSITION_FRONT_CENTER, TQ_SPEAKER_CENTER},
    {PA_CHANNEL_POSITION_TOP_FRONT_CENTER, TQ_SPEAKER_CENTER},
    {PA_CHANNEL_POSITION_LFE, TQ_SPEAKER_SUBWOOFER},
    {PA_CHANNEL_POSITION_REAR_LEFT, TQ_SPEAKER_BACK_LEFT},
    {PA_CHANNEL_POSITION_TOP_REAR_LEFT, TQ_SPEAKER_BACK_LEFT},
    {PA_CHANNEL_POSITION_REAR_RIGHT, TQ_SPEAKER_BACK_RIGHT},
    {PA_CHANNEL_POSITION_TOP_REAR_RIGHT, TQ_SPEAKER_BACK_RIGHT},
    {PA_CHANNEL_POSITION_REAR_CENTER, TQ_SPEAKER_BACK_CENTER},
    {PA_CHANNEL_POSITION_TOP_REAR_CENTER, TQ_SPEAKER_BACK_CENTER},
    {PA_CHANNEL_POSITION_SIDE_LEFT, TQ_SPEAKER_SIDE_LEFT},
    {PA_CHANNEL_POSITION_SIDE_RIGHT, TQ_SPEAKER_SIDE_RIGHT},
    {PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {PA_CHANNEL_POSITION_TOP_FRONT_LEFT, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
    {PA_CHANNEL_POSITION_TOP_FRONT_RIGHT, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
});

tq_speaker speakerAt(pa_channel_position_t position) {
    return meaningOf(position, kSpeakers, TQ_SPEAKER_UNKNOWN);
}

}  // namespace

Speakers pulseSpeakers(const pa_channel_map& map) noexcept {
    return speakersAt(std::span<const pa_channel_position_t>(map.map).first(map.channels),
                      speakerAt);
}

NativeSample pulseSample(pa_sample_format_t format) noexcept {
    return meaningOf(format, kSamples, NativeSample::kNotPcm);
}

}  // namespace tq::bridges
