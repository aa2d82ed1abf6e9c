#include "cli/Outputs.h"

#include "ipc/Printable.h"
#include "output/report/ReportText.h"
#include "view/Diagnosis.h"
#include "view/FrameLines.h"
#include "view/LeftOut.h"
#include "view/StreamLines.h"
#include "view/Summary.h"
#include "view/Untapped.h"

namespace tqrecorder {
namespace {

/// A name with a line end in it must not look like a line of the summary's own.
std::vector<std::string> printableAll(const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (const std::string& line : lines) {
        result.push_back(printable(line));
    }
    return result;
}

}  // namespace

Outputs::Outputs(const Options& options, Screen& screen, int standardOutput)
    : options_(options),
      screen_(screen),
      standardOutput_(standardOutput),
      voiceFacts_(options.isDuckedByVoice()) {
    if (options.microphone) {
        voice_.emplace(
            [this](const Process& process, const Block& block) { SinkSet::block(process, block); },
            [this](const Process& process, std::uint64_t bytes) {
                SinkSet::lost(process, 1, bytes);
            },
            options.microphoneInMix);
    }
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
