#include "format/Resampler.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <new>
#include <stdexcept>

namespace tqplatform {

namespace {

// The filter: 96 taps at the lower of the two rates, flat to about 0.9 of its half, about a
// millisecond of delay. Downwards, what the output cannot hold is more than 100 dB down. Upwards
// the cutoff may lie nearer to the end: mirror images fall beyond it, not back into the tones.
constexpr int kFilterTaps = 96;
constexpr double kCutoffDown = 0.95;
constexpr double kCutoffUp = 0.975;
constexpr int kKaiserBeta = 10;
// Rates further apart than this are not meant, and would cost memory and time without measure.
constexpr double kMaximumFold = 1024;
constexpr double kMaximumCoefficients = 16e6;  // of one filter bank

void check(int result) {
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    if (result < 0) {
        throw std::runtime_error("the resampler refuses these rates");
    }
}

}  // namespace

void FreeResampler::operator()(SwrContext* context) const noexcept {
    swr_free(&context);
}

Resampler makeResampler(RateRatio ratio, UInt32 channels) {
    const double fold = static_cast<double>(ratio.input) / static_cast<double>(ratio.output);
    const auto phases = static_cast<double>(std::min(ratio.output, kFilterPhases));
    if (fold > kMaximumFold || fold < 1 / kMaximumFold ||
        kFilterTaps * fold * phases > kMaximumCoefficients) {
        throw std::runtime_error("the rates are too far apart");
    }
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, static_cast<int>(channels));
    SwrContext* raw = nullptr;
    const int made =
        swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_FLTP, static_cast<int>(ratio.output),
                            &layout, AV_SAMPLE_FMT_FLTP, static_cast<int>(ratio.input), 0, nullptr);
    Resampler resampler(raw);
    av_channel_layout_uninit(&layout);
    check(made);
    check(av_opt_set_sample_fmt(raw, "internal_sample_fmt", AV_SAMPLE_FMT_FLTP, 0));
    check(av_opt_set_int(raw, "filter_size", kFilterTaps, 0));
    // The option counts in halves of the output rate; upwards it is the input's that limits.
    check(av_opt_set_double(raw, "cutoff", fold < 1 ? kCutoffUp * fold : kCutoffDown, 0));
    check(av_opt_set(raw, "filter_type", "kaiser", 0));
    check(av_opt_set_int(raw, "kaiser_beta", kKaiserBeta, 0));
    check(av_opt_set_int(raw, "exact_rational", 1, 0));
    check(av_opt_set_int(raw, "linear_interp", 1, 0));
    check(swr_init(raw));
    return resampler;
}

}  // namespace tqplatform
