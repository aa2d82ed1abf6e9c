#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "picture/DrawingParts.h"

namespace tqpicture {
namespace {

std::string decibelsText(double amplitude) {
    if (amplitude <= 0) {
        return "-\u221e dBFS";
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f dBFS", 20 * std::log10(amplitude));
    return text.data();
}

std::string captionDetails(const TrackAnalysis& analysis) {
    const TrackInfo& info = analysis.info;
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%d Hz, %s%s, ", info.sampleRate,
                  info.channels == 1   ? "mono"
                  : info.channels == 2 ? "stereo"
                                       : std::to_string(info.channels).c_str(),
                  info.channels > 2 ? " channels" : "");
    std::string details = text.data();
    if (!info.encoding.empty()) {
        details += info.encoding + ", ";
    }
    std::snprintf(text.data(), text.size(), info.seconds() < 1 ? "%.4f s" : "%.2f s",
                  info.seconds());
    details += text.data();
    if (info.frames > 0) {
        details += "   peak " + decibelsText(analysis.peak) + ", RMS " + decibelsText(analysis.rms);
    }
    return details;
}

std::string amplitudeLabel(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3g", value);
    return text.data();
}

/// Centred on `y`, yet within the plot, so that labels of neighbouring plots never meet.
double labelBaseline(const Rectangle& plot, double y) {
    return std::clamp(y + 4, plot.y + 9.0, plot.y + plot.height - 1.0);
}

void drawTimeGrid(Pen& pen, const Drawing& drawing, const Rectangle& plot) {
    pen.ink(kGrid);
    for (const Tick& tick : timeTicks(drawing)) {
        const double x = std::floor(xOf(drawing, plot, tick.value));
        pen.line(x, plot.y, x, plot.y + plot.height - 1);
    }
}

void drawWaveform(Pen& pen, const Drawing& drawing, const Rectangle& plot,
                  const std::vector<EnvelopeColumn>& envelope, double range) {
    pen.ink(kNoData);
    pen.fill(plot);
    drawTimeGrid(pen, drawing, plot);
    const double middle = plot.y + plot.height / 2.0;
    const double unit = plot.height / 2.0 / range;
    pen.font(kTextSize);
    for (const double value : {-range, 0.0, range}) {
        const double y = std::clamp(std::floor(middle - value * unit), double(plot.y),
                                    double(plot.y + plot.height - 1));
        pen.ink(kGrid);
        pen.line(plot.x, y, plot.x + plot.width - 1, y);
        pen.ink(kSoftText);
        pen.text(plot.x - 7, labelBaseline(plot, y), amplitudeLabel(value), Align::kRight);
    }
    cairo_save(pen.get());
    cairo_rectangle(pen.get(), plot.x, plot.y, plot.width, plot.height);
    cairo_clip(pen.get());
    for (std::size_t column = 0; column < envelope.size(); ++column) {
        const EnvelopeColumn& data = envelope[column];
        if (!data.hasData) {
            continue;
        }
        const double x = plot.x + static_cast<double>(column);
        const auto bar = [&](double high, double low) {
            // Silence, too, is a line one pixel thick.
            const double top = middle - high * unit;
            cairo_rectangle(pen.get(), x, top - 0.5, 1, std::max((high - low) * unit + 1, 1.0));
            cairo_fill(pen.get());
        };
        pen.ink(kWaveform);
        bar(data.highest, data.lowest);
        pen.ink(kRms);
        bar(std::min(data.rms, data.highest), std::max(-data.rms, data.lowest));
    }
    cairo_restore(pen.get());
    pen.ink(kFrame);
    pen.frame(plot);
    pen.ink(kSoftText);
    pen.turnedText(plot.x - 56, middle, "amplitude");
}

void drawLevels(Pen& pen, const Drawing& drawing, const Rectangle& plot, const LevelGrid& levels) {
    const Surface image = levelImage(levels, drawing.options.floorDb);
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) {
        return;
    }
    pen.ink(kNoData);
    pen.fill(plot);
    cairo_set_source_surface(pen.get(), image.get(), plot.x, plot.y);
    cairo_paint(pen.get());
}

void drawSpectrogram(Pen& pen, const Drawing& drawing, const Rectangle& plot,
                     const TrackAnalysis& analysis) {
    if (analysis.info.frames > 0) {
        drawLevels(pen, drawing, plot, analysis.levels);
    } else {
        pen.ink(kNoData);
        pen.fill(plot);
        pen.ink(kSoftText);
        pen.font(kCaptionSize);
        pen.text(plot.x + plot.width / 2.0, plot.y + plot.height / 2.0 + 4, "no audio in this file",
                 Align::kCentre);
    }
    pen.ink(kFrame);
    pen.frame(plot);
    pen.font(kTextSize);
    const FrequencyScale scale = frequencyScale(drawing.options, drawing.topHertz, plot.height);
    for (const Tick& tick : scale.ticks()) {
        const double y = std::clamp(std::floor(plot.y + scale.positionOf(tick.value)),
                                    double(plot.y), double(plot.y + plot.height - 1));
        pen.ink(kFrame);
        pen.line(plot.x - 5, y, plot.x - 2, y);
        pen.ink(kSoftText);
        pen.text(plot.x - 7, labelBaseline(plot, y), tick.label, Align::kRight);
    }
    pen.turnedText(plot.x - 56, plot.y + plot.height / 2.0, "frequency (Hz)");
}

void drawCaption(Pen& pen, const DrawnTrack& track, const Lane& lane) {
    pen.font(kCaptionSize, true);
    pen.ink(kText);
    const double room = lane.waveform.width * 0.4;
    const std::string name = pen.fitted(printable(track.name), room);
    pen.text(lane.waveform.x, lane.captionBaseline, name);
    const double end = lane.waveform.x + pen.textWidth(name) + 14;
    pen.font(kTextSize);
    pen.ink(kSoftText);
    pen.text(
        end, lane.captionBaseline,
        pen.fitted(captionDetails(track.analysis), lane.waveform.x + lane.waveform.width - end));
}

}  // namespace

void drawLane(Pen& pen, const Drawing& drawing, const DrawnTrack& track, const Lane& lane,
              double range) {
    drawCaption(pen, track, lane);
    drawWaveform(pen, drawing, lane.waveform, track.analysis.envelope, range);
    drawSpectrogram(pen, drawing, lane.spectrogram, track.analysis);
}

}  // namespace tqpicture
