#include "cli/Contradictions.h"

#include <filesystem>
#include <map>
#include <utility>

#include "ipc/Choice.h"
#include "output/files/FileFormats.h"

namespace tqrecorder {
namespace {

bool isTooLong(const Choice& choice) {
    std::size_t bytes = 0;
    for (const auto& patterns : {choice.only, choice.without}) {
        for (const std::string& pattern : patterns) {
            bytes += pattern.size();
        }
    }
    return choice.only.size() > kMostPatterns || choice.without.size() > kMostPatterns ||
           bytes > kMostPatternBytes;
}

std::string samePath(const Options& options) {
    std::map<std::filesystem::path, const char*> seen;
    for (const auto& [path, name] :
         {std::pair(&options.output, "--output"), std::pair(&options.eventsFile, "--events"),
          std::pair(&options.pictureFile, "--picture"), std::pair(&options.reportFile, "--report"),
          std::pair(&options.tracksFolder, "--tracks")}) {
        if (path->empty() || (*path == "-" && path == &options.output)) {
            continue;
        }
        if (*path == "-") {
            return std::string(name) + ": only --output writes to standard output";
        }
        const auto [entry, isNew] =
            seen.emplace(std::filesystem::path(*path).lexically_normal(), name);
        if (!isNew) {
            return std::string(entry->second) + " and " + name + " name the same file";
        }
    }
    return {};
}

}  // namespace

std::string contradictionIn(const Options& o, bool areTimesGiven) {
    const bool toPipe = o.output == "-";
    if (!o.format.empty() && formatNamed(o.format) == nullptr) {
        return "--format: there is no format " + o.format + " (see --list-formats)";
    }
    const FileFormat* const ofTracks = formatNamed(o.tracksFormat);
    if (ofTracks == nullptr) {
        return "--tracks-format: there is no format " + o.tracksFormat + " (see --list-formats)";
    }
    if (ofTracks->isMatroska()) {
        return "--tracks-format " + o.tracksFormat +
               ": one file holds all tracks; name it with --output";
    }
    // Without any place for sound the recorder chooses one for the mix.
    const bool hasMix = !o.output.empty() || o.tracksFolder.empty();
    if (!o.format.empty() && !hasMix) {
        return "--format is for --output, which is missing";
    }
    if (toPipe && !o.format.empty() && o.format != "wav" && o.format != "raw") {
        return "--output -: standard output takes wav or raw, not " + o.format;
    }
    if (!o.output.empty() && !toPipe && o.format.empty() && formatOfPath(o.output) == nullptr) {
        return "--output " + o.output + ": no format has that extension (see --list-formats)";
    }
    if (o.replaySeconds &&
        (toPipe || !o.pictureFile.empty() || !o.reportFile.empty() || o.maximumFileSeconds)) {
        return "--replay goes with neither --output -, --picture, --report nor "
               "--max-file-time";
    }
    const FileFormat* const ofMix =
        o.format.empty() ? formatOfPath(o.output) : formatNamed(o.format);
    const bool holdsTracks = !toPipe && ofMix != nullptr && ofMix->isMatroska();
    if (o.microphone && !o.microphoneInMix && o.tracksFolder.empty() && !holdsTracks &&
        (toPipe || o.replaySeconds || o.isLiveAlone())) {
        return "--mic has no file there: --tracks or --mic-in-mix is wanted";
    }
    if (o.maximumFileSeconds && toPipe && o.tracksFolder.empty()) {
        return "--max-file-time is for files, and --output - is none";
    }
    if (o.endsWith != "command" && o.endsWith != "tree") {
        return "--end-with wants command or tree, not " + o.endsWith;
    }
    if (areTimesGiven && !o.duck && !o.compress) {
        return "--attack and --release want --duck or --compress";
    }
    if (isTooLong({o.only, o.without})) {
        return "--only and --not take 1000 names each at most, of 50000 bytes in all";
    }
    return samePath(o);
}

}  // namespace tqrecorder
