#include "conversion_peers.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cstring>
#include <stdexcept>

void SwresampleToInt16::Free::operator()(SwrContext* context) const {
    swr_free(&context);
}

SwresampleToInt16::SwresampleToInt16() {
    AVChannelLayout mono{};
    av_channel_layout_default(&mono, 1);
    SwrContext* context = nullptr;
    if (swr_alloc_set_opts2(&context, &mono, AV_SAMPLE_FMT_S16, 48000, &mono, AV_SAMPLE_FMT_FLT,
                            48000, 0, nullptr) < 0 ||
        swr_init(context) < 0) {
        throw std::runtime_error("swresample");
    }
    context_.reset(context);
}

void SwresampleToInt16::convert(const float* source, std::int16_t* target, std::size_t count) {
    auto* out = reinterpret_cast<std::uint8_t*>(target);
    const auto* in = reinterpret_cast<const std::uint8_t*>(source);
    swr_convert(context_.get(), &out, static_cast<int>(count), &in, static_cast<int>(count));
}

SdlToInt16::SdlToInt16(std::size_t count) {
    if (SDL_BuildAudioCVT(&plan_, AUDIO_F32SYS, 1, 48000, AUDIO_S16SYS, 1, 48000) < 0) {
        throw std::runtime_error("SDL");
    }
    plan_.len = static_cast<int>(count * sizeof(float));
    buffer_.resize(count * sizeof(float) * static_cast<std::size_t>(plan_.len_mult));
    plan_.buf = buffer_.data();
}

void SdlToInt16::convert(const float* source, std::int16_t* target, std::size_t count) {
    std::memcpy(buffer_.data(), source, count * sizeof(float));
    SDL_ConvertAudio(&plan_);
    std::memcpy(target, buffer_.data(), count * sizeof(std::int16_t));
}
