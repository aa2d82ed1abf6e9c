#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "picture/DrawingParts.h"

namespace tqpicture {
namespace {

constexpr int kRows = 3;
constexpr int kRowHeight = 14;
constexpr double kLabelShare = 0.25;  ///< of the plot, at most
constexpr double kLabelDistance = 8;

const Ink& inkOf(const EventMark& event) {
    return event.isQuiet ? kQuietEvent : kEvent;
}

/// Those within the plot in the order of their time, the quiet ones first.
std::vector<EventMark> sorted(const Drawing& drawing) {
    std::vector<EventMark> events = drawing.options.events;
    std::erase_if(events, [&](const EventMark& event) {
        return !(event.seconds >= 0 && event.seconds <= drawing.axisSeconds);
    });
    std::stable_sort(events.begin(), events.end(), [](const EventMark& a, const EventMark& b) {
        return std::pair(!a.isQuiet, a.seconds) < std::pair(!b.isQuiet, b.seconds);
    });
    return events;
}

void drawLine(Pen& pen, const Drawing& drawing, const EventMark& event) {
    const Rectangle& strip = drawing.layout.eventStrip;
    const double x = std::floor(xOf(drawing, strip, event.seconds));
    pen.ink(inkOf(event), 0.75);
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

/// What is taken of the rows above the lanes.
class LabelRows {
  public:
    /// A row with that stretch free, from then on taken; kRows when there is none.
    [[nodiscard]] std::size_t take(double begin, double end) {
        for (std::size_t row = 0; row < taken_.size(); ++row) {
            const bool isFree =
                std::none_of(taken_[row].begin(), taken_[row].end(), [&](const Stretch& other) {
                    return begin <= other.end + kLabelDistance &&
                           other.begin <= end + kLabelDistance;
                });
            if (isFree) {
                taken_[row].push_back({begin, end});
                return row;
            }
        }
        return taken_.size();
    }

  private:
    struct Stretch {
        double begin;
        double end;
    };
    std::array<std::vector<Stretch>, kRows> taken_;
};

/// Left out where there is no room.
void drawLabel(Pen& pen, const Drawing& drawing, const EventMark& event, LabelRows& rows) {
    const Rectangle& strip = drawing.layout.eventStrip;
    const std::string label = pen.fitted(printable(event.label), strip.width * kLabelShare);
    const double width = pen.textWidth(label);
    const double x =
        std::min(std::floor(xOf(drawing, strip, event.seconds)) + 3, strip.x + strip.width - width);
    const std::size_t row = rows.take(x, x + width);
    if (row == kRows) {
        return;
    }
    const double top = strip.y + kRowHeight * static_cast<double>(row);
    pen.ink(kPaper);
    cairo_rectangle(pen.get(), x - 1, top, width + 2, kRowHeight - 1);
    cairo_fill(pen.get());
    pen.ink(inkOf(event));
    pen.text(x, top + 11, label);
}

}  // namespace

void drawEvents(Pen& pen, const Drawing& drawing) {
    const std::vector<EventMark> events = sorted(drawing);
    // Labels stand on paper of their own in front of all lines.
    for (const EventMark& event : events) {
        drawLine(pen, drawing, event);
    }
    pen.font(kTextSize - 1);
    LabelRows rows;
    // Quiet ones take the room that the others leave.
    for (const bool isQuiet : {false, true}) {
        for (const EventMark& event : events) {
            if (event.isQuiet == isQuiet) {
                drawLabel(pen, drawing, event, rows);
            }
        }
    }
}

}  // namespace tqpicture
