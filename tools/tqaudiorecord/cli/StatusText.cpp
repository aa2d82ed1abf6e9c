#include "cli/StatusText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "ipc/ControlText.h"
#include "output/files/SoundFile.h"
#include "view/LeftOut.h"
#include "view/MeterText.h"
#include "view/StreamLines.h"
#include "view/Summary.h"

namespace tqrecorder {
namespace {

double secondsOf(const SourceState& source) {
    return source.format.sampleRate > 0
               ? static_cast<double>(source.frames) / source.format.sampleRate
               : 0;
}

std::string jsonText(const Observer& observer, const std::vector<WrittenFile>& files,
                     bool isPaused) {
    nlohmann::ordered_json all;
    all["elapsed_seconds"] = observer.elapsedSeconds();
    all["paused"] = isPaused;
    all["sources"] = nlohmann::ordered_json::array();
    std::uint64_t lost = 0;
    for (const auto& [id, state] : observer.processes()) {
        lost += state.lostBlocks;
        for (const auto& [track, source] : state.sources) {
            nlohmann::ordered_json one;
            one["process"] = state.process.name;
            one["pid"] = state.process.pid;
            one["track"] = track;
            one["name"] = track == 0 ? "mix" : source.unit;
            one["seconds"] = secondsOf(source);
            if (source.whole.peak() > 0) {
                one["peak_dbfs"] = 20 * std::log10(source.whole.peak());
            }
            all["sources"].push_back(std::move(one));
        }
    }
    all["lost_blocks"] = lost;
    all["files"] = nlohmann::ordered_json::array();
    for (const WrittenFile& file : files) {
        all["files"].push_back({{"path", file.path}, {"seconds", file.seconds}});
    }
    const auto text = [&all] {
        return all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    };
    // Half an object is none: what does not fit into an answer is left out as a whole, the oldest
    // first.
    for (const std::string part : {"files", "sources"}) {
        std::size_t omitted = 0;
        while (!all[part].empty() && text().size() > kLongestControl) {
            const std::size_t half = (all[part].size() + 1) / 2;
            all[part].erase(all[part].begin(),
                            all[part].begin() + static_cast<std::ptrdiff_t>(half));
            all[part + "_omitted"] = omitted += half;
        }
    }
    return text();
}

using Row = std::array<std::string, 6>;

Row rowOf(const Process& process, int track, const SourceState& source) {
    std::array<char, 32> length{};
    std::snprintf(length.data(), length.size(), "%.1f s", secondsOf(source));
    return {track == 0 ? "mix" : std::to_string(track),
            track == 0 ? "" : source.unit,
            process.name + " (" + std::to_string(process.pid) + ")",
            textOf(source.format),
            source.whole.peak() > 0 ? decibelText(source.whole.peak()) + " dBFS" : "silent",
            length.data()};
}

}  // namespace

std::string listText(const Observer& observer, bool isPaused) {
    std::vector<Row> rows{{"track", "name", "program", "format", "peak", "length"}};
    std::string leftOut;
    for (const auto& [id, state] : observer.processes()) {
        for (const auto& [track, source] : state.sources) {
            rows.push_back(rowOf(state.process, track, source));
        }
        for (const std::string& line : unrecordedStreamLines(state)) {
            leftOut += "  " + state.process.name + ": " + line + "\n";
        }
        for (const std::string& line : leftOutLines(state)) {
            leftOut += "  " + state.process.name + ": " + line + "\n";
        }
    }
    std::array<std::size_t, std::tuple_size_v<Row>> widths{};
    for (const Row& row : rows) {
        std::transform(row.begin(), row.end(), widths.begin(), widths.begin(),
                       [](const std::string& text, std::size_t width) {
                           return std::max(text.size(), width);
                       });
    }
    std::string text = elapsedText(observer.elapsedSeconds()) + (isPaused ? ", paused\n" : "\n");
    for (const Row& row : rows) {
        std::string line = " ";
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += " " + row[i] + std::string(widths[i] - row[i].size() + 1, ' ');
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text + (rows.size() == 1 ? "  nothing yet\n" : "") + leftOut;
}

std::string statusText(const Observer& observer, const std::vector<WrittenFile>& files,
                       bool isPaused, bool asJson) {
    if (asJson) {
        return jsonText(observer, files, isPaused);
    }
    std::string text = elapsedText(observer.elapsedSeconds()) + (isPaused ? "  paused\n" : "\n");
    for (const auto& [id, state] : observer.processes()) {
        text += state.process.name + " (" + std::to_string(state.process.pid) + ")\n";
        for (const auto& [track, source] : state.sources) {
            text += sourceLine(track, source) + "\n";
        }
    }
    return text + fileLines(files);
}

}  // namespace tqrecorder
