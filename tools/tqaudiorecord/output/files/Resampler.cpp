#include "output/files/Resampler.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <new>

namespace tqrecorder {

void Resampler::Free::operator()(SwrContext* context) const {
    swr_free(&context);
}

Resampler::Resampler(int fromHertz, int toHertz, int channels)
    : frameBytes_(static_cast<std::size_t>(channels) * 2) {
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    SwrContext* context = nullptr;
    const int failed = swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_S16, toHertz, &layout,
                                           AV_SAMPLE_FMT_S16, fromHertz, 0, nullptr);
    context_.reset(context);
    av_channel_layout_uninit(&layout);
    if (failed != 0 || swr_init(context_.get()) != 0) {
        throw std::bad_alloc();
    }
}

Resampler::~Resampler() = default;

std::span<const std::byte> Resampler::run(const std::uint8_t* in, int frames) {
    const int room = std::max(swr_get_out_samples(context_.get(), frames), 0);
    out_.resize(static_cast<std::size_t>(room) * frameBytes_);
    auto* out = reinterpret_cast<std::uint8_t*>(out_.data());
    const std::uint8_t* const* const input = in == nullptr ? nullptr : &in;
    const int got =
        swr_convert(context_.get(), &out, room, const_cast<const std::uint8_t**>(input), frames);
    return std::span(out_).first(static_cast<std::size_t>(std::max(got, 0)) * frameBytes_);
}

std::span<const std::byte> Resampler::convert(std::span<const std::byte> frames) {
    return run(reinterpret_cast<const std::uint8_t*>(frames.data()),
               static_cast<int>(frames.size() / frameBytes_));
}

std::span<const std::byte> Resampler::flush() {
    return run(nullptr, 0);
}

}  // namespace tqrecorder
