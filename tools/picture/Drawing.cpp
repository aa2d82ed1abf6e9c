#include "picture/Drawing.h"

#include <algorithm>
#include <cmath>

#include "picture/ColourScale.h"
#include "picture/DrawingParts.h"

namespace tqpicture {
namespace {

constexpr double kTitleSize = 17;
constexpr int kTimeLabelWidth = 90;

double highestPeak(const std::vector<DrawnTrack>& tracks) {
    double peak = 0;
    for (const DrawnTrack& track : tracks) {
        peak = std::max(peak, track.analysis.peak);
    }
    return peak;
}

void drawLegend(Pen& pen, const Drawing& drawing) {
    const Rectangle& bar = drawing.layout.legend;
    const double floorDb = drawing.options.floorDb;
    for (int row = 0; row < bar.height; ++row) {
        const Colour colour = levelColour(1 - (row + 0.5) / bar.height);
        pen.ink({colour.red / 255.0, colour.green / 255.0, colour.blue / 255.0});
        pen.fill({bar.x, bar.y + row, bar.width, 1});
    }
    pen.ink(kFrame);
    pen.frame(bar);
    pen.font(kTextSize);
    for (const Tick& tick : linearTicks(-floorDb, std::max(1, bar.height / 26))) {
        const double y = bar.y + std::min(tick.value / -floorDb * bar.height, bar.height - 1.0);
        pen.ink(kFrame);
        pen.line(bar.x + bar.width + 1, std::floor(y), bar.x + bar.width + 4, std::floor(y));
        pen.ink(kSoftText);
        pen.text(bar.x + bar.width + 7, y + 4, tick.value > 0 ? "-" + tick.label : "0");
    }
    pen.text(bar.x - 2, bar.y - 9, "level (dBFS)");
}

void drawTimeAxis(Pen& pen, const Drawing& drawing) {
    const Rectangle& plot = drawing.layout.lanes.back().spectrogram;
    const int y = drawing.layout.timeAxisY;
    pen.font(kTextSize);
    for (const Tick& tick : timeTicks(drawing)) {
        const double x = std::floor(xOf(drawing, plot, tick.value));
        pen.ink(kFrame);
        pen.line(x, y + 1, x, y + 5);
        pen.ink(kSoftText);
        pen.text(x, y + 18, tick.label, Align::kCentre);
    }
    pen.text(plot.x + plot.width / 2.0, y + 36, "time (s)", Align::kCentre);
}

}  // namespace

double amplitudeRange(double peak) {
    return peak > 1e-6 ? roundUp(peak / 1.001) : 1;
}

FrequencyScale frequencyScale(const Options& options, double topHertz, int rows) {
    return {options.frequencyAxis, topHertz, rows};
}

double xOf(const Drawing& drawing, const Rectangle& plot, double seconds) {
    return plot.x + std::min(seconds / drawing.axisSeconds * plot.width, plot.width - 1.0);
}

std::vector<Tick> timeTicks(const Drawing& drawing) {
    return linearTicks(drawing.axisSeconds,
                       std::max(2, drawing.layout.lanes.front().waveform.width / kTimeLabelWidth));
}

bool draw(const Drawing& drawing, Png& png, std::string& error) {
    const Layout& layout = drawing.layout;
    const Surface surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, layout.width, layout.height));
    Pen pen(surface.get());
    pen.ink(kPaper);
    cairo_paint(pen.get());
    if (!drawing.options.title.empty()) {
        pen.font(kTitleSize, true);
        pen.ink(kText);
        pen.text(layout.lanes.front().waveform.x, layout.titleBaseline,
                 pen.fitted(printable(drawing.options.title), layout.lanes.front().waveform.width));
    }
    const double range = amplitudeRange(highestPeak(drawing.tracks));
    for (std::size_t index = 0; index < drawing.tracks.size(); ++index) {
        drawLane(pen, drawing, drawing.tracks[index], layout.lanes[index], range);
    }
    drawLegend(pen, drawing);
    drawTimeAxis(pen, drawing);
    drawEvents(pen, drawing);

    cairo_status_t status = cairo_status(pen.get());
    if (status == CAIRO_STATUS_SUCCESS) {
        status = encode(surface.get(), png);
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        error = std::string("cannot draw it: ") + cairo_status_to_string(status);
        return false;
    }
    return true;
}

}  // namespace tqpicture
