#include "bridges/alsa/AlsaFormat.h"

#include <TQAudioRecord/tq_source.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

namespace tq::bridges {
namespace {

constexpr std::string_view kFirstStatus = "AES0";
/// Set when what is played is not linear samples.
constexpr unsigned kNotAudio = 0x2;

constexpr std::array<unsigned, 8> kUsualOrder{SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_RL,
                                              SND_CHMAP_RR, SND_CHMAP_FC, SND_CHMAP_LFE,
                                              SND_CHMAP_SL, SND_CHMAP_SR};

using enum NativeSample;
constexpr auto kLittle = std::endian::little;
constexpr auto kBig = std::endian::big;

constexpr auto kSamples = std::to_array<Meaning<snd_pcm_format_t, NativeSample>>({
    {SND_PCM_FORMAT_U8, kU8},
    {SND_PCM_FORMAT_S8, kS8},
    {SND_PCM_FORMAT_S16_LE, inOrder(kS16, kLittle)},
    {SND_PCM_FORMAT_S16_BE, inOrder(kS16, kBig)},
    {SND_PCM_FORMAT_U16_LE, inOrder(kU16, kLittle)},
    {SND_PCM_FORMAT_U16_BE, inOrder(kU16, kBig)},
    {SND_PCM_FORMAT_S24_3LE, inOrder(kS24In3, kLittle)},
    {SND_PCM_FORMAT_S24_3BE, inOrder(kS24In3, kBig)},
    {SND_PCM_FORMAT_U24_3LE, inOrder(kU24In3, kLittle)},
    {SND_PCM_FORMAT_U24_3BE, inOrder(kU24In3, kBig)},
    {SND_PCM_FORMAT_S24_LE, inOrder(kS24In4, kLittle)},
    {SND_PCM_FORMAT_S24_BE, inOrder(kS24In4, kBig)},
    {SND_PCM_FORMAT_U24_LE, inOrder(kU24In4, kLittle)},
    {SND_PCM_FORMAT_U24_BE, inOrder(kU24In4, kBig)},
    {SND_PCM_FORMAT_S32_LE, inOrder(kS32, kLittle)},
    {SND_PCM_FORMAT_S32_BE, inOrder(kS32, kBig)},
    {SND_PCM_FORMAT_U32_LE, inOrder(kU32, kLittle)},
    {SND_PCM_FORMAT_U32_BE, inOrder(kU32, kBig)},
    {SND_PCM_FORMAT_FLOAT_LE, inOrder(kF32, kLittle)},
    {SND_PCM_FORMAT_FLOAT_BE, inOrder(kF32, kBig)},
    {SND_PCM_FORMAT_FLOAT64_LE, inOrder(kF64, kLittle)},
    {SND_PCM_FORMAT_FLOAT64_BE, inOrder(kF64, kBig)},
});

/// What lies above is heard where it would be below.
constexpr auto kSpeakers = std::to_array<Meaning<unsigned, tq_speaker>>({
    {SND_CHMAP_FL, TQ_SPEAKER_FRONT_LEFT},
    {SND_CHMAP_FR, TQ_SPEAKER_FRONT_RIGHT},
    {SND_CHMAP_FC, TQ_SPEAKER_CENTER},
    {SND_CHMAP_FCH, TQ_SPEAKER_CENTER},
    {SND_CHMAP_TFC, TQ_SPEAKER_CENTER},
    {SND_CHMAP_LFE, TQ_SPEAKER_SUBWOOFER},
    {SND_CHMAP_LLFE, TQ_SPEAKER_SUBWOOFER},
    {SND_CHMAP_RLFE, TQ_SPEAKER_SUBWOOFER},
    {SND_CHMAP_NA, TQ_SPEAKER_SUBWOOFER},
    {SND_CHMAP_RL, TQ_SPEAKER_BACK_LEFT},
    {SND_CHMAP_RLC, TQ_SPEAKER_BACK_LEFT},
    {SND_CHMAP_TRL, TQ_SPEAKER_BACK_LEFT},
    {SND_CHMAP_RR, TQ_SPEAKER_BACK_RIGHT},
    {SND_CHMAP_RRC, TQ_SPEAKER_BACK_RIGHT},
    {SND_CHMAP_TRR, TQ_SPEAKER_BACK_RIGHT},
    {SND_CHMAP_RC, TQ_SPEAKER_BACK_CENTER},
    {SND_CHMAP_TRC, TQ_SPEAKER_BACK_CENTER},
    {SND_CHMAP_SL, TQ_SPEAKER_SIDE_LEFT},
    {SND_CHMAP_TSL, TQ_SPEAKER_SIDE_LEFT},
    {SND_CHMAP_SR, TQ_SPEAKER_SIDE_RIGHT},
    {SND_CHMAP_TSR, TQ_SPEAKER_SIDE_RIGHT},
    {SND_CHMAP_FLC, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {SND_CHMAP_FLW, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {SND_CHMAP_FLH, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {SND_CHMAP_TFL, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {SND_CHMAP_TFLC, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {SND_CHMAP_BLC, TQ_SPEAKER_FRONT_LEFT_OF_CENTER},
    {SND_CHMAP_FRC, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
    {SND_CHMAP_FRW, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
    {SND_CHMAP_FRH, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
    {SND_CHMAP_TFR, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
    {SND_CHMAP_TFRC, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
    {SND_CHMAP_BRC, TQ_SPEAKER_FRONT_RIGHT_OF_CENTER},
});

tq_speaker speakerAt(unsigned position) {
    return meaningOf(position & SND_CHMAP_POSITION_MASK, kSpeakers, TQ_SPEAKER_UNKNOWN);
}

}  // namespace

Speakers alsaSpeakers(std::span<const unsigned> positions) noexcept {
    return speakersAt(positions, speakerAt);
}

Speakers usualAlsaSpeakers(unsigned channels) noexcept {
    if (channels > kUsualOrder.size()) {
        return {};
    }
    Speakers speakers = alsaSpeakers(std::span(kUsualOrder).first(channels));
    // The last of three or seven is no half of a pair.
    if (channels % 2 != 0 && channels != 5) {
        speakers.at(channels - 1) = TQ_SPEAKER_UNKNOWN;
    }
    return speakers;
}

bool isPassThrough(std::string_view device) noexcept {
    const std::size_t at = device.find(kFirstStatus);
    if (at == std::string_view::npos) {
        return false;
    }
    device.remove_prefix(at + kFirstStatus.size());
    device.remove_prefix(std::min(device.find_first_not_of("= \t\"'"), device.size()));
    int base = 10;
    if (device.starts_with("0x") || device.starts_with("0X")) {
        device.remove_prefix(2);
        base = 16;
    }
    unsigned status = 0;
    (void)std::from_chars(device.data(), device.data() + device.size(), status, base);
    return (status & kNotAudio) != 0;
}

NativeSample alsaSample(snd_pcm_format_t format) noexcept {
    return meaningOf(format, kSamples, NativeSample::kNotPcm);
}

}  // namespace tq::bridges
