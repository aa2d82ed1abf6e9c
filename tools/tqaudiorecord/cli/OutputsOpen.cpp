// Which outputs a recording has, and whether their places are good.

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <utility>

#include "cli/Outputs.h"
#include "output/TracksSink.h"
#include "output/VoiceSink.h"
#include "output/live/LiveSink.h"
#include "output/matroska/MatroskaSink.h"

namespace tqrecorder {
namespace {

/// Whether two outputs would be one file, also through links to files that are not there yet.
bool areSame(const std::string& one, const std::string& other) {
    std::error_code failure;
    const std::string target = linkTarget(one);
    const std::string otherTarget = linkTarget(other);
    return std::filesystem::exists(target, failure)
               ? std::filesystem::is_regular_file(target, failure) &&
                     std::filesystem::equivalent(target, otherTarget, failure)
               : std::filesystem::weakly_canonical(target, failure) ==
                     std::filesystem::weakly_canonical(otherTarget, failure);
}

/// A named pipe: opening it waits until a reader comes, and so may writing.
bool isPipe(const std::string& path) {
    std::error_code failure;
    const std::filesystem::file_status status = std::filesystem::status(path, failure);
    return std::filesystem::is_fifo(status) || std::filesystem::is_socket(status);
}

/// One of the numbered files that stand in the way of a series of that name; empty without any.
std::string firstNumbered(const std::string& path) {
    const std::filesystem::path whole(path);
    const std::string begin = whole.stem().string() + "-";
    const std::string end = whole.extension().string();
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(
             whole.has_parent_path() ? whole.parent_path() : ".", failure)) {
        const std::string name = entry.path().filename().string();
        if (name.size() >= begin.size() + 3 + end.size() && name.starts_with(begin) &&
            name.ends_with(end) &&
            std::all_of(name.begin() + static_cast<std::ptrdiff_t>(begin.size()),
                        name.end() - static_cast<std::ptrdiff_t>(end.size()),
                        [](char c) { return c >= '0' && c <= '9'; })) {
            return entry.path().string();
        }
    }
    return {};
}

}  // namespace

template <typename Kind>
bool Outputs::addOpened(std::unique_ptr<Kind> sink, std::string& error) {
    if (sink->open()) {
        add(std::move(sink));
        return true;
    }
    const std::vector<std::string> problems = sink->problems();
    error = problems.empty() ? "an output cannot be opened" : problems.front();
    return false;
}

template <typename Kind>
bool Outputs::addFiles(std::unique_ptr<Kind> sink, std::string& error) {
    files_.push_back(sink.get());
    return addOpened(std::move(sink), error);
}

/// Whether the files may be written. Whether they can shows when they are opened beside their
/// names.
bool Outputs::arePlacesGood(std::string& error) const {
    const Options& o = options_;
    for (const std::string& path : {o.replaySeconds ? std::string() : o.output, o.eventsFile,
                                    o.pictureFile, o.reportFile, voiceFile()}) {
        const bool isSound = path == o.output || path == voiceFile();
        const std::string first = isSound && o.maximumFileSeconds ? firstNumbered(path) : path;
        error = path == "-" || first.empty() ? std::string() : whyNotWritten(first, o.overwrite);
        if (!error.empty()) {
            return false;
        }
    }
    std::vector<std::string> places;
    // A replay and a long recording write numbered files only.
    const bool isOneFile = o.output != "-" && !o.replaySeconds && !o.maximumFileSeconds;
    for (const std::string& path :
         {isOneFile ? o.output : "", o.eventsFile, o.pictureFile, o.reportFile}) {
        if (path.empty()) {
            continue;
        }
        if (isPipe(path)) {
            error = path + ": a pipe; only --output - writes into one";
            return false;
        }
        for (const std::string& other : places) {
            if (areSame(path, other)) {
                error = other + " and " + path + " are the same file";
                return false;
            }
        }
        places.push_back(path);
    }
    return true;
}

const FileFormat* Outputs::formatOfMix() const {
    return !options_.format.empty() ? formatNamed(options_.format) : formatOfPath(options_.output);
}

std::string Outputs::voiceFile() const {
    const Options& o = options_;
    const FileFormat* const format = formatOfMix();
    // Of a file with many streams it is one.
    const bool isBeside = o.microphone && !o.microphoneInMix && o.tracksFolder.empty() &&
                          !o.replaySeconds && o.output != "-" &&
                          (format == nullptr || !format->isMatroska());
    return isBeside ? VoiceSink::pathBeside(o.output) : std::string();
}

bool Outputs::open(std::string& error) {
    if (options_.isOutputChosen) {
        std::error_code failure;
        std::filesystem::create_directories(std::filesystem::path(options_.output).parent_path(),
                                            failure);
    }
    if (!arePlacesGood(error)) {
        return false;
    }
    voiceFacts_.begin(hostTime());
    observer_ = &add(std::make_unique<Observer>(options_.microphoneInMix));
    if (!openMix(error) || !openTracks(error) || !openEvents(error) || !openViews(error) ||
        (options_.live && !openLive(error))) {
        return false;
    }
    if (!options_.quiet) {
        add(std::make_unique<Meter>(screen_, *observer_, options_.verbose));
    }
    return true;
}

FileSeries::Plan Outputs::planOf(const std::string& path, const FileFormat* kind) const {
    return {.path = path,
            .kind = kind,
            .maximumSeconds = options_.maximumFileSeconds,
            .mayReplace = options_.overwrite,
            .programs = names_};
}

bool Outputs::openMix(std::string& error) {
    const Options& o = options_;
    const FileFormat* const format = formatOfMix();
    if (o.output == "-" && ::isatty(standardOutput_) == 1) {
        error =
            "standard output is a terminal, and no place for sound; send it to a file or program";
        return false;
    }
    if (o.output == "-") {
        const bool raw = format != nullptr && format->isBare();
        pipe_ = &add(std::make_unique<PipeSink>(
            standardOutput_, raw ? PipeSink::Shape::kRaw : PipeSink::Shape::kWav));
        return true;
    }
    if (o.replaySeconds) {
        auto sink = std::make_unique<ReplaySink>(ReplaySink::Plan{{o.output, format},
                                                                  o.tracksFolder,
                                                                  *o.replaySeconds,
                                                                  o.replayOverlaps,
                                                                  formatNamed(o.tracksFormat)},
                                                 names_);
        replay_ = sink.get();
        return addFiles(std::move(sink), error);
    }
    if (o.output.empty()) {
        return true;
    }
    const FileSeries::Plan plan = planOf(o.output, format);
    return format->isMatroska() ? addFiles(std::make_unique<MatroskaSink>(plan, names_), error)
                                : addFiles(std::make_unique<MixSink>(plan, names_), error);
}

/// Those of the programs, and the microphone's.
bool Outputs::openTracks(std::string& error) {
    const Options& o = options_;
    if (!o.tracksFolder.empty() && !o.replaySeconds) {
        const TracksSink::Plan plan{o.tracksFolder,    o.maximumFileSeconds,        o.overwrite,
                                    o.tracksFromStart, formatNamed(o.tracksFormat), names_};
        if (!addFiles(std::make_unique<TracksSink>(plan, names_), error)) {
            return false;
        }
    }
    const std::string voice = voiceFile();
    return voice.empty() ||
           addFiles(std::make_unique<VoiceSink>(planOf(voice, &trackFormat())), error);
}

bool Outputs::openEvents(std::string& error) {
    if (options_.eventsFile.empty()) {
        return true;
    }
    auto sink = std::make_unique<EventsSink>(options_.eventsFile, options_.overwrite, names_);
    events_ = sink.get();
    return addOpened(std::move(sink), error);
}

bool Outputs::openLive(std::string& error) {
    return addOpened(std::make_unique<LiveSink>([this](const std::string& line) {
                         if (!options_.quiet) {
                             screen_.line("tqaudiorecord: " + line);
                         }
                     }),
                     error);
}

/// What shows a recording when it is over. Behind the outputs that it tells of.
bool Outputs::openViews(std::string& error) {
    const Options& o = options_;
    if (o.pictureFile.empty() && o.reportFile.empty()) {
        return true;
    }
    const Lanes& lanes = add(std::make_unique<Lanes>(names_, !o.reportFile.empty()));
    if (!o.pictureFile.empty()) {
        auto sink = std::make_unique<PictureSink>(o.pictureFile, o.overwrite, lanes);
        picture_ = sink.get();
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    }
    if (!o.reportFile.empty()) {
        auto sink = std::make_unique<ReportSink>(
            o.reportFile, o.overwrite, lanes, [this] { return reportFacts(); }, std::time(nullptr));
        report_ = sink.get();
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    }
    sayWhatThePageCannotPlay();
    return true;
}

}  // namespace tqrecorder
