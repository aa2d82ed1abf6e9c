#include "view/Summary.h"

#include <TQAudioRecord/tq_events.h>

#include <array>
#include <cstdio>

#include "output/files/SoundFile.h"
#include "view/FrameLines.h"
#include "view/LeftOut.h"
#include "view/StreamLines.h"
#include "view/Untapped.h"

namespace tqrecorder {
namespace {

std::string secondsText(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", seconds);
    return text.data();
}

std::string counted(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string levels(const SourceState& source) {
    return source.whole.peak() > 0 ? "peak " + decibelText(source.whole.peak()) + " dBFS, RMS " +
                                         decibelText(source.whole.rms()) + " dBFS"
                                   : "silent";
}

std::string length(const SourceState& source) {
    return source.format.sampleRate > 0
               ? secondsText(static_cast<double>(source.frames) / source.format.sampleRate)
               : "nothing";
}

/// What happened, failures first.
std::string eventLines(const ProcessState& state) {
    std::string failures;
    std::string others;
    for (const auto& [event, times] : state.events) {
        const auto& [category, code] = event;
        const bool isFailure = tq_event_kind_of(category, code) == TQ_EVENT_KIND_FAILURE;
        std::string& lines = isFailure ? failures : others;
        lines += std::string("    ") + (isFailure ? "failure: " : "") +
                 tq_event_text(category, code) +
                 (times > 1 ? " (" + std::to_string(times) + " times)\n" : "\n");
    }
    return failures + others;
}

/// A tool of a script that the recorder went into, as it runs programs that may play, and that had
/// nothing to do with sound.
bool isHelper(const ProcessState& state) {
    return !state.process.isCommand && state.sources.empty() && state.streams.empty() &&
           state.facts.hooksInstalled && state.facts.unitsCreated == 0 && !state.facts.mayPlay &&
           state.events.empty();
}

/// Nothing is called recorded that stands in no file.
std::string titleOf(const ProcessState& state, bool isWritten) {
    return state.sources.empty() ? "Nothing heard of: "
           : isWritten           ? "Recorded: "
                                 : "Heard, and written to no file: ";
}

}  // namespace

std::string sourceLine(int track, const SourceState& source) {
    return (track == 0 ? "  mix" : "  track " + std::to_string(track) + " (" + source.unit + ")") +
           ": " + textOf(source.format) + ", " + length(source) + ", " + levels(source);
}

std::string fileLine(const WrittenFile& file) {
    return file.path + " (" + file.text + ", " + secondsText(file.seconds) + ")";
}

std::string fileLines(const std::vector<WrittenFile>& files) {
    std::string text;
    for (const WrittenFile& file : files) {
        text += fileLine(file) + "\n";
    }
    return text;
}

std::string summaryText(const Observer& observer, const std::vector<WrittenFile>& files,
                        const std::vector<std::string>& otherFiles,
                        const std::vector<std::string>& problems,
                        const std::vector<std::string>& silence) {
    std::string text;
    for (const ProcessState* const mentioned : observer.mentioned()) {
        const ProcessState& state = *mentioned;
        if (isHelper(state)) {
            continue;
        }
        text += titleOf(state, !files.empty()) + state.process.name + " (" +
                std::to_string(state.process.pid) + ")\n";
        for (const auto& [track, source] : state.sources) {
            text += sourceLine(track, source) + "\n";
        }
        text += "  " + counted(state.eventCount(), "event") + ", " + counted(state.gaps(), "gap") +
                " filled with silence";
        if (const auto mix = state.sources.find(0);
            state.gaps() > 0 && mix != state.sources.end() && mix->second.clock) {
            text += " (" + secondsText(mix->second.clock->gapSeconds()) + ")";
        }
        text += ", " + counted(state.lostBlocks, "block") + " lost";
        text += state.lostBytes > 0 ? " (" + std::to_string(state.lostBytes) + " bytes)\n" : "\n";
        for (const std::string& line : unrecordedStreamLines(state)) {
            text += "  " + line + "\n";
        }
        for (const std::string& line : leftOutLines(state)) {
            text += "  " + line + "\n";
        }
        for (const std::string& line : streamFrameLines(state)) {
            text += "  " + line + "\n";
        }
        for (const std::string& line : frameLines(state.facts.frames)) {
            text += "  " + line + "\n";
        }
        text += eventLines(state);
    }
    // Where nothing was heard at all, the reasons for silence say it.
    for (const std::string& line : silence.empty()
                                       ? unrecordedProcessLines(observer, Evidence::kOfSound)
                                       : std::vector<std::string>{}) {
        text += "Not recorded: " + line + "\n";
    }
    if (!files.empty() || !otherFiles.empty()) {
        text += "Files:\n";
    }
    for (const WrittenFile& file : files) {
        text += "  " + fileLine(file) + "\n";
    }
    for (const std::string& path : otherFiles) {
        text += "  " + path + "\n";
    }
    for (const std::string& reason : silence) {
        text += "Silent: " + reason + "\n";
    }
    for (const std::string& problem : problems) {
        text += "Problem: " + problem + "\n";
    }
    return text;
}

}  // namespace tqrecorder
