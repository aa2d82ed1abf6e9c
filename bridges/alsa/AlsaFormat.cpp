#include "bridges/alsa/AlsaFormat.h"

#include <TQAudioRecord/tq_source.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

namespace tq::bridges {
namespace {

constexpr bool kIsLittle = std::endian::native == std::endian::little;

/// Of a pair of samples the one whose bytes lie as ALSA says.
constexpr NativeSample little(NativeSample own, NativeSample swapped) {
    return kIsLittle ? own : swapped;
}
constexpr NativeSample big(NativeSample own, NativeSample swapped) {
    return kIsLittle ? swapped : own;
}

constexpr std::string_view kFirstStatus = "AES0";
/// Set when what is played is not linear samples.
constexpr unsigned kNotAudio = 0x2;

constexpr std::array<unsigned, 8> kUsualOrder{SND_CHMAP_FL, SND_CHMAP_FR, SND_CHMAP_RL,
                                              SND_CHMAP_RR, SND_CHMAP_FC, SND_CHMAP_LFE,
                                              SND_CHMAP_SL, SND_CHMAP_SR};

/// What lies above is heard where it would be below.
tq_speaker speakerAt(unsigned position) {
    switch (position & SND_CHMAP_POSITION_MASK) {
        case SND_CHMAP_FL:
            return TQ_SPEAKER_FRONT_LEFT;
        case SND_CHMAP_FR:
            return TQ_SPEAKER_FRONT_RIGHT;
        case SND_CHMAP_FC:
        case SND_CHMAP_FCH:
        case SND_CHMAP_TFC:
            return TQ_SPEAKER_CENTER;
        case SND_CHMAP_LFE:
        case SND_CHMAP_LLFE:
        case SND_CHMAP_RLFE:
        case SND_CHMAP_NA:
            return TQ_SPEAKER_SUBWOOFER;
        case SND_CHMAP_RL:
        case SND_CHMAP_RLC:
        case SND_CHMAP_TRL:
            return TQ_SPEAKER_BACK_LEFT;
        case SND_CHMAP_RR:
        case SND_CHMAP_RRC:
        case SND_CHMAP_TRR:
            return TQ_SPEAKER_BACK_RIGHT;
        case SND_CHMAP_RC:
        case SND_CHMAP_TRC:
            return TQ_SPEAKER_BACK_CENTER;
        case SND_CHMAP_SL:
        case SND_CHMAP_TSL:
            return TQ_SPEAKER_SIDE_LEFT;
        case SND_CHMAP_SR:
        case SND_CHMAP_TSR:
            return TQ_SPEAKER_SIDE_RIGHT;
        case SND_CHMAP_FLC:
        case SND_CHMAP_FLW:
        case SND_CHMAP_FLH:
        case SND_CHMAP_TFL:
        case SND_CHMAP_TFLC:
        case SND_CHMAP_BLC:
            return TQ_SPEAKER_FRONT_LEFT_OF_CENTER;
        case SND_CHMAP_FRC:
        case SND_CHMAP_FRW:
        case SND_CHMAP_FRH:
        case SND_CHMAP_TFR:
        case SND_CHMAP_TFRC:
        case SND_CHMAP_BRC:
            return TQ_SPEAKER_FRONT_RIGHT_OF_CENTER;
        default:
            return TQ_SPEAKER_UNKNOWN;
    }
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
    using enum NativeSample;
    switch (format) {
        case SND_PCM_FORMAT_U8:
            return kU8;
        case SND_PCM_FORMAT_S8:
            return kS8;
        case SND_PCM_FORMAT_S16_LE:
            return little(kS16, kS16Swapped);
        case SND_PCM_FORMAT_S16_BE:
            return big(kS16, kS16Swapped);
        case SND_PCM_FORMAT_U16_LE:
            return little(kU16, kU16Swapped);
        case SND_PCM_FORMAT_U16_BE:
            return big(kU16, kU16Swapped);
        case SND_PCM_FORMAT_S24_3LE:
            return little(kS24In3, kS24In3Swapped);
        case SND_PCM_FORMAT_S24_3BE:
            return big(kS24In3, kS24In3Swapped);
        case SND_PCM_FORMAT_U24_3LE:
            return little(kU24In3, kU24In3Swapped);
        case SND_PCM_FORMAT_U24_3BE:
            return big(kU24In3, kU24In3Swapped);
        case SND_PCM_FORMAT_S24_LE:
            return little(kS24In4, kS24In4Swapped);
        case SND_PCM_FORMAT_S24_BE:
            return big(kS24In4, kS24In4Swapped);
        case SND_PCM_FORMAT_U24_LE:
            return little(kU24In4, kU24In4Swapped);
        case SND_PCM_FORMAT_U24_BE:
            return big(kU24In4, kU24In4Swapped);
        case SND_PCM_FORMAT_S32_LE:
            return little(kS32, kS32Swapped);
        case SND_PCM_FORMAT_S32_BE:
            return big(kS32, kS32Swapped);
        case SND_PCM_FORMAT_U32_LE:
            return little(kU32, kU32Swapped);
        case SND_PCM_FORMAT_U32_BE:
            return big(kU32, kU32Swapped);
        case SND_PCM_FORMAT_FLOAT_LE:
            return little(kF32, kF32Swapped);
        case SND_PCM_FORMAT_FLOAT_BE:
            return big(kF32, kF32Swapped);
        case SND_PCM_FORMAT_FLOAT64_LE:
            return little(kF64, kF64Swapped);
        case SND_PCM_FORMAT_FLOAT64_BE:
            return big(kF64, kF64Swapped);
        default:
            return kNotPcm;
    }
}

}  // namespace tq::bridges
