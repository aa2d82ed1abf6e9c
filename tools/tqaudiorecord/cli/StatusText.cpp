#include "cli/StatusText.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "view/MeterText.h"
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
    return all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace

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
