#include "gain_peers.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

#include <cmath>
#include <stdexcept>

namespace {

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string("libavfilter: ") + what);
    }
}

}  // namespace

void FilterPeer::FreeGraph::operator()(AVFilterGraph* graph) const {
    avfilter_graph_free(&graph);
}

void FilterPeer::FreeFrame::operator()(AVFrame* frame) const {
    av_frame_free(&frame);
}

AVFilterContext* FilterPeer::make(const std::string& filter, const std::string& name,
                                  const std::string& options) {
    AVFilterContext* context = nullptr;
    check(avfilter_graph_create_filter(&context, avfilter_get_by_name(filter.c_str()), name.c_str(),
                                       options.c_str(), nullptr, graph_.get()),
          filter.c_str());
    return context;
}

FilterPeer::FilterPeer(const std::string& filter, const std::string& options, bool hasSideChain,
                       int frames)
    : graph_(avfilter_graph_alloc()), in_(av_frame_alloc()), out_(av_frame_alloc()) {
    const std::string format =
        "sample_rate=48000:sample_fmt=flt:channel_layout=stereo:"
        "time_base=1/48000";
    avfilter_graph_set_auto_convert(graph_.get(), AVFILTER_AUTO_CONVERT_ALL);
    graph_->nb_threads = 1;
    source_ = make("abuffer", "in", format);
    AVFilterContext* const stage = make(filter, "stage", options);
    sink_ = make("abuffersink", "out", "");
    check(avfilter_link(source_, 0, stage, 0), "link");
    if (hasSideChain) {
        sideChain_ = make("abuffer", "side", format);
        check(avfilter_link(sideChain_, 0, stage, 1), "link");
    }
    check(avfilter_link(stage, 0, sink_, 0), "link");
    check(avfilter_graph_config(graph_.get(), nullptr), "config");

    in_->format = AV_SAMPLE_FMT_FLT;
    in_->sample_rate = 48000;
    in_->nb_samples = frames;
    av_channel_layout_default(&in_->ch_layout, 2);
    check(av_frame_get_buffer(in_.get(), 0), "buffer");
    auto* const samples = reinterpret_cast<float*>(in_->data[0]);
    for (int i = 0; i < 2 * frames; ++i) {
        samples[i] = 0.89F * std::sin(0.13F * static_cast<float>(i));
    }
}

FilterPeer::~FilterPeer() = default;

void FilterPeer::process() {
    in_->pts = time_;
    time_ += in_->nb_samples;
    constexpr int kKeep = AV_BUFFERSRC_FLAG_KEEP_REF;
    check(av_buffersrc_add_frame_flags(source_, in_.get(), kKeep), "push");
    if (sideChain_ != nullptr) {
        check(av_buffersrc_add_frame_flags(sideChain_, in_.get(), kKeep), "push");
    }
    while (av_buffersink_get_frame(sink_, out_.get()) >= 0) {
        av_frame_unref(out_.get());
    }
}
