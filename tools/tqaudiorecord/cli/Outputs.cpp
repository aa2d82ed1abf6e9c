#include "cli/Outputs.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "ipc/Printable.h"
#include "output/TracksSink.h"
#include "output/VoiceSink.h"
#include "output/live/LiveSink.h"
#include "output/matroska/MatroskaSink.h"
#include "output/report/ReportText.h"
#include "view/Diagnosis.h"
#include "view/FrameLines.h"
#include "view/LeftOut.h"
#include "view/StreamLines.h"
#include "view/Summary.h"
#include "view/Untapped.h"

namespace tqrecorder {

Outputs::Outputs(const Options& options, Screen& screen, int standardOutput)
    : options_(options),
      screen_(screen),
      standardOutput_(standardOutput),
      voiceFacts_(options.isDuckedByVoice()) {
    if (options.microphone) {
        voice_.emplace(
            [this](const Process& process, const Block& block) { SinkSet::block(process, block); },
            options.microphoneInMix);
    }
}

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

/// A name with a line end in it must not look like a line of the summary's own.
std::vector<std::string> printableAll(const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (const std::string& line : lines) {
        result.push_back(printable(line));
    }
    return result;
}

}  // namespace

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
    observer_ = &add(std::make_unique<Observer>(options_.microphoneInMix));
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
    } else if (o.replaySeconds) {
        auto sink = std::make_unique<ReplaySink>(ReplaySink::Plan{{o.output, format},
                                                                  o.tracksFolder,
                                                                  *o.replaySeconds,
                                                                  o.replayOverlaps,
                                                                  formatNamed(o.tracksFormat)},
                                                 names_);
        replay_ = sink.get();
        files_.push_back(sink.get());
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    } else if (!o.output.empty() && format->isMatroska()) {
        auto sink =
            std::make_unique<MatroskaSink>(FileSeries::Plan{.path = o.output,
                                                            .kind = format,
                                                            .maximumSeconds = o.maximumFileSeconds,
                                                            .mayReplace = o.overwrite,
                                                            .programs = names_},
                                           names_);
        files_.push_back(sink.get());
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    } else if (!o.output.empty()) {
        auto sink =
            std::make_unique<MixSink>(FileSeries::Plan{.path = o.output,
                                                       .kind = format,
                                                       .maximumSeconds = o.maximumFileSeconds,
                                                       .mayReplace = o.overwrite,
                                                       .programs = names_},
                                      names_);
        files_.push_back(sink.get());
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    }
    if (!o.tracksFolder.empty() && !o.replaySeconds) {
        auto sink = std::make_unique<TracksSink>(
            TracksSink::Plan{o.tracksFolder, o.maximumFileSeconds, o.overwrite, o.tracksFromStart,
                             formatNamed(o.tracksFormat), names_},
            names_);
        files_.push_back(sink.get());
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    }
    if (!voiceFile().empty()) {
        auto sink =
            std::make_unique<VoiceSink>(FileSeries::Plan{.path = voiceFile(),
                                                         .kind = &trackFormat(),
                                                         .maximumSeconds = o.maximumFileSeconds,
                                                         .mayReplace = o.overwrite,
                                                         .programs = names_});
        files_.push_back(sink.get());
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    }
    if (!o.eventsFile.empty()) {
        auto sink = std::make_unique<EventsSink>(o.eventsFile, o.overwrite, names_);
        events_ = sink.get();
        if (!addOpened(std::move(sink), error)) {
            return false;
        }
    }
    if (!openViews(error)) {
        return false;
    }
    if (o.live && !openLive(error)) {
        return false;
    }
    if (!o.quiet) {
        add(std::make_unique<Meter>(screen_, *observer_, o.verbose));
    }
    return true;
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

/// Before the evening is over.
void Outputs::sayWhatThePageCannotPlay() {
    const FileFormat* const mix = formatOfMix();
    const bool isMixAlone = !options_.reportFile.empty() && options_.tracksFolder.empty();
    if (const std::string why = mix == nullptr ? "" : whyNotPlayed(mix, {});
        isMixAlone && !why.empty()) {
        notice("the page of --report will play nothing, as " + why +
               "; --tracks writes files that they play");
    }
}

ReportFacts Outputs::reportFacts() const {
    ReportFacts facts;
    for (const FilesSink* sink : files_) {
        const std::vector<WrittenFile> more = sink->files();
        facts.files.insert(facts.files.end(), more.begin(), more.end());
    }
    facts.otherFiles = otherFiles();
    facts.problems = problems();
    const auto append = [](std::vector<std::string>& all, const std::vector<std::string>& more) {
        all.insert(all.end(), more.begin(), more.end());
    };
    for (const auto& [id, state] : observer_->processes()) {
        append(facts.leftOut, unrecordedStreamLines(state));
        append(facts.leftOut, leftOutLines(state));
        append(facts.accounts, streamFrameLines(state));
        append(facts.accounts, frameLines(state.facts.frames));
    }
    append(facts.leftOut, unrecordedProcessLines(*observer_, Evidence::kOfSound));
    return facts;
}

void Outputs::tick(std::uint64_t elapsedMicroseconds) {
    SinkSet::tick(elapsedMicroseconds);
    showProblems();
}

void Outputs::finish() {
    if (voice_) {
        voice_->finish();
    }
    SinkSet::finish();
    showProblems();
}

void Outputs::showProblems() {
    for (const std::string& problem : problems()) {
        if (shownProblems_.insert(problem).second) {
            screen_.line("tqaudiorecord: " + problem);
        }
    }
}

std::vector<std::string> Outputs::silence(int endSignal) const {
    if (isPlayedInPause_ && !names_->isHeard()) {
        return {"what was played was played while the recording was paused"};
    }
    return whySilent(*observer_, options_.command.front(), endSignal);
}

bool Outputs::isAnythingRecorded() const {
    for (const auto& [id, state] : observer_->processes()) {
        for (const auto& [track, source] : state.sources) {
            if (source.frames > 0) {
                return true;
            }
        }
    }
    return false;
}

bool Outputs::hasAnyProcess() const {
    return !observer_->processes().empty();
}

std::vector<WrittenFile> Outputs::files() const {
    std::vector<WrittenFile> files;
    for (const FilesSink* sink : files_) {
        const std::vector<WrittenFile> more = sink->files();
        files.insert(files.end(), more.begin(), more.end());
    }
    if (pipe_ != nullptr && pipe_->taken().seconds > 0) {
        files.push_back(pipe_->taken());
    }
    for (WrittenFile& file : files) {
        file.path = printable(file.path);
    }
    return files;
}

std::vector<std::string> Outputs::otherFiles() const {
    std::vector<std::string> others;
    if (events_ != nullptr && !events_->path().empty()) {
        others.push_back(events_->path());
    }
    if (picture_ != nullptr && !picture_->path().empty()) {
        others.push_back(picture_->path());
    }
    return others;
}

std::string Outputs::summary(const std::vector<std::string>& silence) const {
    const std::vector<WrittenFile> files = this->files();
    std::vector<std::string> others = otherFiles();
    if (report_ != nullptr && !report_->path().empty()) {
        others.push_back(report_->path());
    }
    return summaryText(*observer_, files, printableAll(others), printableAll(problems()),
                       printableAll(silence)) +
           pauseLine() +
           (options_.microphone || options_.isDuckedByVoice()
                ? voiceFacts_.lines(options_.microphoneName, voice_ ? voice_->leftOutSeconds() : 0)
                : "");
}

}  // namespace tqrecorder
