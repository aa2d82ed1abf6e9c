#include "output/report/ReportLane.h"

#include <algorithm>
#include <cmath>

#include "output/report/ReportText.h"
#include "picture/Axis.h"

namespace tqrecorder {
namespace {

using tqpicture::EnvelopeColumn;

constexpr int kHalf = 500;           // of the waveform's height in its own units
constexpr int kThinnest = 4;         // so that silence is a line
constexpr double kLabelShare = 0.2;  // of a spectrogram's height, between two labels

int heightOf(double value, double amplitude) {
    return kHalf - static_cast<int>(std::lround(std::clamp(value / amplitude, -1.0, 1.0) * kHalf));
}

/// The area between two lines over all columns that have data, stretch by stretch.
template <typename Low, typename High>
std::string areaOf(const std::vector<EnvelopeColumn>& columns, Low low, High high) {
    std::string path;
    for (std::size_t begin = 0; begin < columns.size();) {
        if (!columns[begin].hasData) {
            ++begin;
            continue;
        }
        std::size_t end = begin;
        path += "M" + std::to_string(begin) + " " + std::to_string(high(columns[begin]));
        for (; end < columns.size() && columns[end].hasData; ++end) {
            path += "V" + std::to_string(high(columns[end])) + "h1";
        }
        for (std::size_t column = end; column > begin; --column) {
            path += "V" + std::to_string(low(columns[column - 1])) + "h-1";
        }
        path += "Z";
        begin = end;
    }
    return path;
}

std::string waveform(const Report& report, const ReportLane& lane) {
    const double amplitude = report.amplitude;
    const auto top = [amplitude](const EnvelopeColumn& column) {
        return heightOf(column.highest, amplitude) - kThinnest;
    };
    const auto bottom = [amplitude](const EnvelopeColumn& column) {
        return heightOf(column.lowest, amplitude) + kThinnest;
    };
    const auto rmsTop = [amplitude](const EnvelopeColumn& column) {
        return heightOf(std::min(column.rms, column.highest), amplitude) - kThinnest;
    };
    const auto rmsBottom = [amplitude](const EnvelopeColumn& column) {
        return heightOf(std::max(-column.rms, column.lowest), amplitude) + kThinnest;
    };
    const std::string columns = std::to_string(lane.envelope.size());
    return "<svg class=\"wave\" viewBox=\"0 0 " + columns + " " + std::to_string(2 * kHalf) +
           "\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"Waveform of " +
           escaped(lane.name) + "\"><path class=\"middle\" d=\"M0 500H" + columns +
           "\"/><path class=\"peak\" d=\"" + areaOf(lane.envelope, bottom, top) +
           "\"/><path class=\"rms\" d=\"" + areaOf(lane.envelope, rmsBottom, rmsTop) +
           "\"/></svg>\n";
}

std::string spectrogram(const Report& report, const ReportLane& lane) {
    std::string markup = "<div class=\"levels\"><img alt=\"Spectrogram of " + escaped(lane.name) +
                         "\" src=\"data:image/png;base64," + base64(lane.levels) + "\">";
    const tqpicture::FrequencyScale scale(tqpicture::FrequencyAxis::kLogarithmic, report.topHertz,
                                          kReportRows);
    double last = 1 + kLabelShare;
    for (const double hertz : {100.0, 1000.0, 10'000.0}) {
        const double place = scale.positionOf(hertz) / kReportRows;
        if (place > 0.05 && place < 0.95 && last - place >= kLabelShare) {
            markup += "<span style=\"top:" + fixed(place * 100, 1) + "%\">" +
                      tqpicture::frequencyLabel(hertz) + "</span>";
            last = place;
        }
    }
    return markup + "</div>\n";
}

std::string button(const char* kind, const char* word, const ReportLane& lane, bool isPressed,
                   bool isUsable) {
    return std::string("<button type=\"button\" class=\"") + kind + "\" aria-pressed=\"" +
           (isPressed ? "true" : "false") + "\" aria-label=\"" + word + " " + escaped(lane.name) +
           "\"" + (isUsable ? "" : " disabled") + ">" + word + "</button>\n";
}

std::string levels(const ReportLane& lane) {
    std::string text = "<p class=\"numbers\">";
    if (lane.peak > 0 && lane.isLoudnessMeasured) {
        text += lane.loudness ? fixed(*lane.loudness, 1) + " LUFS" : "too quiet or short for LUFS";
        text += ", true peak " + levelText(lane.truePeak, "dBTP") + "<br>";
    }
    return text +
           (lane.peak > 0
                ? "peak " + levelText(lane.peak, "dBFS") + ", RMS " + levelText(lane.rms, "dBFS")
                : "silent") +
           "</p>\n";
}

std::string about(const ReportLane& lane) {
    std::string markup =
        "<p class=\"soft\">" + escaped(lane.format) + "<br>" + fixed(lane.seconds, 2) + " s";
    markup += lane.at >= 0.05 ? ", begins at " + clockText(lane.at) : "";
    markup += "</p>\n" + levels(lane);
    if (lane.gaps > 0) {
        markup += "<p class=\"warn\">" + std::to_string(lane.gaps) +
                  (lane.gaps == 1 ? " gap" : " gaps") + " filled with silence (" +
                  fixed(lane.gapSeconds, 2) + " s)</p>\n";
    }
    return markup;
}

std::string files(const ReportLane& lane) {
    constexpr std::size_t kListed = 8;
    if (lane.files.empty()) {
        return "<p class=\"soft\">not kept as a file</p>\n";
    }
    std::string markup = "<p>";
    for (std::size_t index = 0; index < std::min(lane.files.size(), kListed); ++index) {
        const ReportFile& file = lane.files[index];
        markup += (index > 0 ? "<br>" : "") + std::string("<a href=\"") + file.url + "\">" +
                  escaped(file.name) + "</a>";
    }
    if (lane.files.size() > kListed) {
        markup += "<br>and " + std::to_string(lane.files.size() - kListed) + " more";
    }
    markup += "</p>\n";
    const auto unplayed =
        std::find_if(lane.files.begin(), lane.files.end(),
                     [](const ReportFile& file) { return !file.whyNotPlayed.empty(); });
    if (unplayed != lane.files.end()) {
        markup +=
            "<p class=\"warn\">Not played here: " + escaped(unplayed->whyNotPlayed) + "</p>\n";
    }
    return markup;
}

std::string sound(const ReportLane& lane) {
    std::string markup;
    for (const ReportFile& file : lane.files) {
        if (file.whyNotPlayed.empty()) {
            markup += "<audio preload=\"auto\" data-src=\"" + file.url + "\" data-name=\"" +
                      escaped(file.name) + "\" data-at=\"" + fixed(file.at, 6) +
                      "\" data-seconds=\"" + fixed(file.seconds, 6) + "\"></audio>\n";
        }
    }
    return markup;
}

}  // namespace

std::string laneMarkup(const Report& report, const ReportLane& lane, bool isHeard) {
    const std::string audio = sound(lane);
    const bool isUsable = !audio.empty();
    return std::string("<section class=\"lane") + (lane.isMix ? " mix" : "") +
           "\" tabindex=\"0\" aria-label=\"" + escaped(lane.name) +
           "\">\n<div class=\"about\"><h3>" + escaped(lane.name) +
           "</h3>\n<div class=\"buttons\">" + button("mute", "Mute", lane, !isHeard, isUsable) +
           button("solo", "Solo", lane, false, isUsable) + "</div>\n" + about(lane) + files(lane) +
           "<p class=\"note bad\" role=\"status\"></p>\n" + audio +
           "</div>\n<div class=\"plots\">\n" + waveform(report, lane) + spectrogram(report, lane) +
           "</div>\n</section>\n";
}

}  // namespace tqrecorder
