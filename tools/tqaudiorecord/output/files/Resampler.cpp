#include "output/files/Resampler.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <new>

namespace tqrecorder {
namespace {

AVSampleFormat samplesOf(const BlockFormat& format) {
    if (format.isFloat) {
        return format.bitsPerChannel == 64 ? AV_SAMPLE_FMT_DBL : AV_SAMPLE_FMT_FLT;
    }
    return format.bitsPerChannel == 16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
}

int hertzOf(const BlockFormat& format) {
    return static_cast<int>(std::lround(format.sampleRate));
}

}  // namespace

BlockFormat widened(BlockFormat format) {
    if (!format.isFloat) {
        format.bitsPerChannel = format.bitsPerChannel <= 16 ? 16 : 32;
    }
    return format;
}

std::span<const std::byte> widen(std::span<const std::byte> frames, const BlockFormat& format,
                                 std::vector<std::byte>& room) {
    if (widened(format) == format) {
        return frames;
    }
    const std::size_t narrow = format.bitsPerChannel / 8;
    const std::size_t wide = narrow + 1;
    const std::size_t samples = frames.size() / narrow;
    room.assign(samples * wide, std::byte{0});
    for (std::size_t sample = 0; sample < samples; ++sample) {
        std::copy_n(frames.data() + sample * narrow, narrow, room.data() + sample * wide + 1);
    }
    return room;
}

void Resampler::Free::operator()(SwrContext* context) const {
    swr_free(&context);
}

Resampler::Resampler(const BlockFormat& from, const BlockFormat& to)
    : from_(from), outBytes_(to.frameBytes()) {
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, static_cast<int>(from.channels));
    SwrContext* context = nullptr;
    const int failed = swr_alloc_set_opts2(&context, &layout, samplesOf(to), hertzOf(to), &layout,
                                           samplesOf(widened(from)), hertzOf(from), 0, nullptr);
    context_.reset(context);
    av_channel_layout_uninit(&layout);
    if (failed != 0 || swr_init(context_.get()) != 0) {
        throw std::bad_alloc();
    }
}

Resampler::~Resampler() = default;

std::span<const std::byte> Resampler::run(const std::uint8_t* in, int frames) {
    const int room = std::max(swr_get_out_samples(context_.get(), frames), 0);
    out_.resize(static_cast<std::size_t>(room) * outBytes_);
    auto* out = reinterpret_cast<std::uint8_t*>(out_.data());
    const std::uint8_t* const* const input = in == nullptr ? nullptr : &in;
    const int got =
        swr_convert(context_.get(), &out, room, const_cast<const std::uint8_t**>(input), frames);
    return std::span(out_).first(static_cast<std::size_t>(std::max(got, 0)) * outBytes_);
}

std::span<const std::byte> Resampler::convert(std::span<const std::byte> frames) {
    const std::size_t count = frames.size() / from_.frameBytes();
    return run(reinterpret_cast<const std::uint8_t*>(widen(frames, from_, wide_).data()),
               static_cast<int>(count));
}

std::span<const std::byte> Resampler::flush() {
    return run(nullptr, 0);
}

}  // namespace tqrecorder
