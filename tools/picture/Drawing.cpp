#include "picture/Drawing.h"

#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>

#include "picture/ColourScale.h"

namespace tqpicture {
namespace {

constexpr double kTextSize = 12;
constexpr double kCaptionSize = 13;
constexpr double kTitleSize = 17;
constexpr int kEventRows = 3;
constexpr int kEventRowHeight = 14;
constexpr double kEventLabelShare = 0.25;  // of the plot, at most
constexpr int kTimeLabelWidth = 90;

struct Ink {
    double red, green, blue;
};
constexpr Ink kPaper{1, 1, 1};
constexpr Ink kText{0.13, 0.15, 0.18};
constexpr Ink kSoftText{0.38, 0.41, 0.46};
constexpr Ink kFrame{0.62, 0.65, 0.70};
constexpr Ink kGrid{0.88, 0.89, 0.91};
constexpr Ink kWaveform{0.53, 0.69, 0.86};
constexpr Ink kRms{0.15, 0.38, 0.65};
constexpr Ink kNoData{0.95, 0.955, 0.96};
constexpr Ink kEvent{0.80, 0.16, 0.30};

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct DestroyContext {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, DestroySurface>;
using Context = std::unique_ptr<cairo_t, DestroyContext>;

enum class Align { kLeft, kCentre, kRight };

class Pen {
  public:
    explicit Pen(cairo_surface_t* surface) : context_(cairo_create(surface)) {
        cairo_set_line_width(get(), 1);
    }
    [[nodiscard]] cairo_t* get() const { return context_.get(); }

    void ink(const Ink& ink, double opacity = 1) {
        cairo_set_source_rgba(get(), ink.red, ink.green, ink.blue, opacity);
    }
    void fill(const Rectangle& area) {
        cairo_rectangle(get(), area.x, area.y, area.width, area.height);
        cairo_fill(get());
    }
    // Half a pixel in, a line one pixel wide covers whole pixels.
    void line(double x0, double y0, double x1, double y1) {
        cairo_move_to(get(), x0 + 0.5, y0 + 0.5);
        cairo_line_to(get(), x1 + 0.5, y1 + 0.5);
        cairo_stroke(get());
    }
    void frame(const Rectangle& area) {
        cairo_rectangle(get(), area.x - 0.5, area.y - 0.5, area.width + 1, area.height + 1);
        cairo_stroke(get());
    }
    void font(double size, bool bold = false) {
        cairo_select_font_face(get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(get(), size);
    }
    double textWidth(const std::string& text) {
        cairo_text_extents_t extents;
        cairo_text_extents(get(), text.c_str(), &extents);
        return extents.x_advance;
    }
    void text(double x, double baseline, const std::string& text, Align align = Align::kLeft) {
        const double width = align == Align::kLeft ? 0 : textWidth(text);
        cairo_move_to(get(), x - (align == Align::kCentre ? width / 2 : width), baseline);
        cairo_show_text(get(), text.c_str());
    }
    void turnedText(double x, double centreY, const std::string& words) {
        cairo_save(get());
        cairo_translate(get(), x, centreY);
        cairo_rotate(get(), -std::acos(-1.0) / 2);
        text(0, 0, words, Align::kCentre);
        cairo_restore(get());
    }
    // Shortens at the end with an ellipsis until it fits.
    std::string fitted(std::string text, double width) {
        if (textWidth(text) <= width) {
            return text;
        }
        while (!text.empty() && textWidth(text + "\u2026") > width) {
            do {
                text.pop_back();
            } while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U);
            if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xC0U) {
                text.pop_back();
            }
        }
        return text + "\u2026";
    }

  private:
    Context context_;
};

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

/// One scale for all waveforms, so that loud and quiet tracks compare; quiet recordings get a
/// narrower one, which the labels tell.
double amplitudeRange(const std::vector<DrawnTrack>& tracks) {
    double peak = 0;
    for (const DrawnTrack& track : tracks) {
        peak = std::max(peak, track.analysis.peak);
    }
    return peak > 1e-6 ? roundUp(peak / 1.001) : 1;
}

std::string amplitudeLabel(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3g", value);
    return text.data();
}

double xOf(const Drawing& drawing, const Rectangle& plot, double seconds) {
    return plot.x + std::min(seconds / drawing.axisSeconds * plot.width, plot.width - 1.0);
}

std::vector<Tick> timeTicks(const Drawing& drawing) {
    return linearTicks(drawing.axisSeconds,
                       std::max(2, drawing.layout.lanes.front().waveform.width / kTimeLabelWidth));
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

std::uint32_t pixel(const Colour& colour) {
    return 0xFF000000U | (std::uint32_t{colour.red} << 16U) | (std::uint32_t{colour.green} << 8U) |
           std::uint32_t{colour.blue};
}

void drawLevels(Pen& pen, const Drawing& drawing, const Rectangle& plot, const LevelGrid& levels) {
    const Surface image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, plot.width, plot.height));
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS) {
        return;
    }
    cairo_surface_flush(image.get());
    unsigned char* bytes = cairo_image_surface_get_data(image.get());
    const int stride = cairo_image_surface_get_stride(image.get());
    const auto byte = [](double share) { return static_cast<std::uint8_t>(share * 255); };
    const Colour empty{byte(kNoData.red), byte(kNoData.green), byte(kNoData.blue)};
    const double floorDb = drawing.options.floorDb;
    for (std::size_t row = 0; row < levels.rows(); ++row) {
        auto* line =
            reinterpret_cast<std::uint32_t*>(bytes + static_cast<std::ptrdiff_t>(row) * stride);
        for (std::size_t column = 0; column < levels.columns(); ++column) {
            const float level = levels.at(column, row);
            line[column] =
                pixel(std::isnan(level) ? empty : levelColour((level - floorDb) / -floorDb));
        }
    }
    cairo_surface_mark_dirty(image.get());
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

void drawEvents(Pen& pen, const Drawing& drawing) {
    const Rectangle& strip = drawing.layout.eventStrip;
    std::vector<EventMark> events = drawing.options.events;
    std::stable_sort(events.begin(), events.end(),
                     [](const EventMark& a, const EventMark& b) { return a.seconds < b.seconds; });
    const auto outside = [&](const EventMark& event) {
        return !(event.seconds >= 0 && event.seconds <= drawing.axisSeconds);
    };
    events.erase(std::remove_if(events.begin(), events.end(), outside), events.end());

    // Lines first: labels stand on paper of their own, before them.
    for (const EventMark& event : events) {
        const double x = std::floor(xOf(drawing, strip, event.seconds));
        pen.ink(kEvent, 0.75);
        pen.line(x, strip.y, x, strip.y + strip.height - 1);
        constexpr std::array<double, 2> kDashes{5, 4};
        cairo_set_dash(pen.get(), kDashes.data(), kDashes.size(), 0);
        for (const Lane& lane : drawing.layout.lanes) {
            for (const Rectangle& plot : {lane.waveform, lane.spectrogram}) {
                pen.line(x, plot.y, x, plot.y + plot.height - 1);
            }
        }
        cairo_set_dash(pen.get(), nullptr, 0, 0);
    }

    // Each row remembers where its last label ends; a label without room is left out.
    std::array<double, kEventRows> rowEnds;
    rowEnds.fill(-std::numeric_limits<double>::infinity());
    pen.font(kTextSize - 1);
    for (const EventMark& event : events) {
        const std::string label =
            pen.fitted(printable(event.label), strip.width * kEventLabelShare);
        const double width = pen.textWidth(label);
        const double x = std::min(std::floor(xOf(drawing, strip, event.seconds)) + 3,
                                  strip.x + strip.width - width);
        const auto row =
            std::find_if(rowEnds.begin(), rowEnds.end(), [&](double end) { return x > end + 8; });
        if (row != rowEnds.end()) {
            *row = x + width;
            const double top = strip.y + kEventRowHeight * double(row - rowEnds.begin());
            pen.ink(kPaper);
            cairo_rectangle(pen.get(), x - 1, top, width + 2, kEventRowHeight - 1);
            cairo_fill(pen.get());
            pen.ink(kEvent);
            pen.text(x, top + 11, label);
        }
    }
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

FrequencyScale frequencyScale(const Options& options, double topHertz, int rows) {
    return {options.frequencyAxis, topHertz, rows};
}

std::string printable(const std::string& text) {
    std::string result;
    for (std::size_t index = 0; index < text.size();) {
        const auto lead = static_cast<unsigned char>(text[index]);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC2 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                   : lead < 0xF5 ? 4
                                                 : 0;
        bool good = length > 0 && index + length <= text.size() && lead >= 0x20 && lead != 0x7F;
        std::uint32_t code = length > 1 ? lead & (0x7FU >> length) : lead;
        for (std::size_t next = 1; good && next < length; ++next) {
            const auto byte = static_cast<unsigned char>(text[index + next]);
            good = (byte & 0xC0U) == 0x80U;
            code = (code << 6U) | (byte & 0x3FU);
        }
        // Overlong forms, surrogates and what lies beyond Unicode.
        good = good && !(length == 3 && code < 0x800) && !(length == 4 && code < 0x10000) &&
               !(code >= 0xD800 && code <= 0xDFFF) && code <= 0x10FFFF;
        if (good) {
            result.append(text, index, length);
            index += length;
        } else {
            result += '?';
            ++index;
        }
    }
    return result;
}

bool writeDrawing(const Drawing& drawing, const std::string& pngPath, std::string& error) {
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
    const double range = amplitudeRange(drawing.tracks);
    for (std::size_t index = 0; index < drawing.tracks.size(); ++index) {
        const DrawnTrack& track = drawing.tracks[index];
        const Lane& lane = layout.lanes[index];
        drawCaption(pen, track, lane);
        drawWaveform(pen, drawing, lane.waveform, track.analysis.envelope, range);
        drawSpectrogram(pen, drawing, lane.spectrogram, track.analysis);
    }
    drawLegend(pen, drawing);
    drawTimeAxis(pen, drawing);
    drawEvents(pen, drawing);

    cairo_status_t status = cairo_status(pen.get());
    if (status == CAIRO_STATUS_SUCCESS) {
        cairo_surface_flush(surface.get());
        status = cairo_surface_write_to_png(surface.get(), pngPath.c_str());
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        error = "cannot write " + pngPath + ": " + cairo_status_to_string(status);
        return false;
    }
    return true;
}

}  // namespace tqpicture
