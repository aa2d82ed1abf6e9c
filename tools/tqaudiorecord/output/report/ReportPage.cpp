#include "output/report/ReportPage.h"

#include <algorithm>

#include "output/report/PageParts.h"
#include "output/report/ReportLane.h"
#include "output/report/ReportText.h"
#include "picture/Axis.h"

namespace tqrecorder {
namespace {

/// Nothing is loaded but the sound beside it, whatever a name may have smuggled in.
constexpr const char* kPolicy =
    "default-src 'none'; img-src data:; media-src 'self' file: http: https:; style-src "
    "'unsafe-inline'; script-src 'unsafe-inline'";

std::string head(const Report& report) {
    return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
           escaped(kPolicy) + "\">\n<title>" + escaped(report.title) +
           " - recording</title>\n<style>\n" + std::string(pageStyle()) + "</style>\n</head>\n";
}

std::string fact(const std::string& name, const std::string& value, bool isBad = false) {
    return "<div><dt>" + name + "</dt><dd" + (isBad ? " class=\"bad\"" : "") + ">" + value +
           "</dd></div>\n";
}

std::string facts(const Report& report) {
    std::string markup = "<dl class=\"facts\">\n" + fact("Length", clockText(report.seconds));
    const auto mix = std::find_if(report.lanes.begin(), report.lanes.end(),
                                  [](const ReportLane& lane) { return lane.isMix; });
    std::uint64_t gaps = 0;
    if (mix != report.lanes.end()) {
        if (mix->isLoudnessMeasured) {
            markup += fact("Loudness of the mix",
                           mix->loudness ? fixed(*mix->loudness, 1) + " LUFS" : "none");
            // Above full scale it clips where it is converted.
            markup += fact("True peak", levelText(mix->truePeak, "dBTP"), mix->truePeak > 1);
        }
        gaps = mix->gaps;
    }
    const auto tracks = std::count_if(report.lanes.begin(), report.lanes.end(),
                                      [](const ReportLane& lane) { return !lane.isMix; });
    markup += fact("Tracks", std::to_string(tracks));
    markup += fact("Gaps in the mix", std::to_string(gaps), gaps > 0);
    markup += fact("Blocks lost", std::to_string(report.lostBlocks), report.lostBlocks > 0);
    return markup + "</dl>\n";
}

std::string transport(const Report& report, bool isUsable) {
    const std::string end = fixed(report.seconds, 3);
    return std::string("<div class=\"transport\" role=\"group\" aria-label=\"Playback\">\n") +
           "<button type=\"button\" id=\"play\"" + (isUsable ? "" : " disabled") +
           ">\u25b6 Play</button>\n<output id=\"time\">0:00.0 / " + clockText(report.seconds) +
           "</output>\n<input type=\"range\" id=\"seek\" min=\"0\" max=\"" + end +
           "\" step=\"0.01\" value=\"0\" aria-label=\"Position\">\n" +
           "<span id=\"said\" class=\"warn\" role=\"status\">" +
           (isUsable ? "" : "No file beside this page can be played by browsers.") +
           "</span>\n<p class=\"keys soft\"><kbd>Space</kbd> plays and pauses, <kbd>\u2190</kbd> "
           "<kbd>\u2192</kbd> five seconds, <kbd>Home</kbd> <kbd>End</kbd>, <kbd>1</kbd> to "
           "<kbd>9</kbd> solo, <kbd>M</kbd> <kbd>S</kbd> mute and solo of the track that has the "
           "focus. A click into a picture goes there.</p>\n</div>\n";
}

/// Ticks of the time and a mark for every event.
std::string strip(const Report& report) {
    const auto place = [&report](double seconds) {
        return fixed(report.seconds > 0 ? std::clamp(seconds / report.seconds, 0.0, 1.0) * 100 : 0,
                     3);
    };
    std::string markup =
        "<div class=\"strip\"><div class=\"about soft\">Time, and events as "
        "lines</div>\n<div class=\"axis\">";
    constexpr int kTicks = 10;
    for (const tqpicture::Tick& tick : tqpicture::linearTicks(report.seconds, kTicks)) {
        if (tick.value < report.seconds * 0.97) {
            markup += "<span style=\"left:" + place(tick.value) + "%\">" +
                      (report.seconds < 3 ? tick.label + " s" : clockText(tick.value)) + "</span>";
        }
    }
    for (const bool isFailure : {false, true}) {
        for (const ReportEvent& event : report.events) {
            for (const double seconds :
                 event.isFailure == isFailure ? event.seconds : std::vector<double>{}) {
                markup += std::string("<i") + (isFailure ? " class=\"bad\"" : "") +
                          " style=\"left:" + place(seconds) + "%\" title=\"" + escaped(event.text) +
                          "\"></i>";
            }
        }
    }
    return markup + "</div></div>\n";
}

std::string eventTable(const Report& report) {
    if (report.events.empty()) {
        return {};
    }
    constexpr std::size_t kTimes = 12;
    std::string markup =
        "<h2>Events</h2>\n<div class=\"scroll\"><table><thead><tr><th>What</th><th>How "
        "often</th><th>When</th></tr></thead><tbody>\n";
    for (const bool isFailure : {true, false}) {
        for (const ReportEvent& event : report.events) {
            if (event.isFailure != isFailure) {
                continue;
            }
            markup += std::string("<tr><td") + (isFailure ? " class=\"bad\">failure: " : ">") +
                      escaped(event.text) + "</td><td class=\"number\">" +
                      std::to_string(event.count) + "</td><td class=\"times\">";
            for (std::size_t index = 0; index < std::min(event.seconds.size(), kTimes); ++index) {
                const double seconds = event.seconds[index];
                markup += "<button type=\"button\" data-go=\"" + fixed(seconds, 3) +
                          "\" aria-label=\"Go to " + clockText(seconds) + "\">" +
                          clockText(seconds) + "</button>";
            }
            markup += event.count > kTimes ? " \u2026" : "";
            markup += "</td></tr>\n";
        }
    }
    return markup + "</tbody></table></div>\n";
}

std::string list(const std::string& title, const std::vector<std::string>& lines,
                 const char* kind = "") {
    if (lines.empty()) {
        return {};
    }
    std::string markup = "<h2>" + title + "</h2>\n<ul class=\"" + kind + "\">\n";
    for (const std::string& line : lines) {
        markup += "<li>" + escaped(line) + "</li>\n";
    }
    return markup + "</ul>\n";
}

std::vector<std::string> losses(const Report& report) {
    std::vector<std::string> lines;
    if (report.lostBlocks > 0) {
        lines.push_back(std::to_string(report.lostBlocks) + " blocks (" +
                        std::to_string(report.lostBytes) +
                        " bytes) found no room on their way to the recorder");
    }
    for (const ReportLane& lane : report.lanes) {
        if (lane.gaps > 0) {
            lines.push_back(lane.name + ": " + std::to_string(lane.gaps) +
                            (lane.gaps == 1 ? " gap" : " gaps") + " filled with silence, " +
                            fixed(lane.gapSeconds, 2) + " s");
        }
    }
    if (lines.empty()) {
        lines.emplace_back("nothing was lost, and no gap was filled");
    }
    lines.insert(lines.end(), report.accounts.begin(), report.accounts.end());
    return lines;
}

bool isPlayable(const ReportLane& lane) {
    return std::any_of(lane.files.begin(), lane.files.end(),
                       [](const ReportFile& file) { return file.whyNotPlayed.empty(); });
}

}  // namespace

std::string reportPage(const Report& report) {
    const bool hasMix =
        std::any_of(report.lanes.begin(), report.lanes.end(),
                    [](const ReportLane& lane) { return lane.isMix && isPlayable(lane); });
    const bool isUsable = std::any_of(report.lanes.begin(), report.lanes.end(), isPlayable);
    std::string page = head(report) + "<body>\n<header><h1>" + escaped(report.title) +
                       "</h1>\n<p class=\"soft\">" + escaped(report.date) + "</p>\n" +
                       facts(report) + "</header>\n" + list("Problems", report.problems, "bad") +
                       "<main>\n" + transport(report, isUsable) +
                       "<div id=\"lanes\" data-seconds=\"" + fixed(report.seconds, 6) + "\">\n" +
                       strip(report);
    for (const ReportLane& lane : report.lanes) {
        // The mix is what was heard; its tracks beside it would be heard twice.
        page += laneMarkup(report, lane, lane.isMix || !hasMix);
    }
    return page + "</div>\n<p class=\"soft\">All waveforms at one scale, up to " +
           fixed(report.amplitude, report.amplitude < 0.1 ? 3 : 2) +
           " of full scale, with the RMS in the stronger colour. Spectrograms from " +
           fixed(kReportFloorDb, 0) + " dBFS, black, to 0 dBFS, pale yellow.</p>\n" +
           list("Not recorded", report.leftOut, "warn") + eventTable(report) +
           list("Losses and gaps", losses(report)) + list("Files", report.files) +
           "</main>\n<script>\n" + std::string(pageScript()) + "</script>\n</body>\n</html>\n";
}

}  // namespace tqrecorder
