#include "picture/Layout.h"

namespace tqpicture {
namespace {

constexpr int kLeftMargin = 76;   // tick labels and the turned axis name
constexpr int kRightMargin = 92;  // colour bar and its labels
constexpr int kTopMargin = 14;
constexpr int kTitleHeight = 28;
constexpr int kEventStripHeight = 46;
constexpr int kCaptionHeight = 24;
constexpr int kPlotGap = 6;
constexpr int kLaneGap = 16;
constexpr int kTimeAxisHeight = 46;
constexpr int kLegendGap = 18;
constexpr int kLegendWidth = 16;

}  // namespace

Layout layOut(std::size_t tracks, const Options& options) {
    Layout layout;
    layout.width = options.width;
    const int plotWidth = options.width - kLeftMargin - kRightMargin;
    int y = kTopMargin;
    if (!options.title.empty()) {
        layout.titleBaseline = y + 17;
        y += kTitleHeight;
    }
    if (!options.events.empty()) {
        layout.eventStrip = {kLeftMargin, y, plotWidth, kEventStripHeight};
        y += kEventStripHeight;
    }
    for (std::size_t index = 0; index < tracks; ++index) {
        const bool first = index == 0;
        const int waveform = first ? options.firstWaveformHeight : options.waveformHeight;
        const int spectrogram = first ? options.firstSpectrogramHeight : options.spectrogramHeight;
        Lane lane;
        y += first ? 0 : kLaneGap;
        lane.captionBaseline = y + 16;
        y += kCaptionHeight;
        lane.waveform = {kLeftMargin, y, plotWidth, waveform};
        y += waveform + kPlotGap;
        lane.spectrogram = {kLeftMargin, y, plotWidth, spectrogram};
        y += spectrogram;
        layout.lanes.push_back(lane);
    }
    if (!layout.lanes.empty()) {
        const Rectangle& plot = layout.lanes.front().spectrogram;
        layout.legend = {plot.x + plot.width + kLegendGap, plot.y, kLegendWidth, plot.height};
    }
    layout.timeAxisY = y;
    layout.height = y + kTimeAxisHeight;
    return layout;
}

}  // namespace tqpicture
