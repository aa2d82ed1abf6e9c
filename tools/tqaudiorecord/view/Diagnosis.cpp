#include "view/Diagnosis.h"

#include <algorithm>
#include <cstring>

#include "core/GuardFiles.h"
#include "view/LeftOut.h"
#include "view/StreamLines.h"
#include "view/Untapped.h"

namespace tqrecorder {
namespace {

std::string counted(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// Whether any unit's own blocks came. The mix alone says nothing: it goes on without units.
bool hasTrack(const ProcessState& state) {
    return std::any_of(state.sources.begin(), state.sources.end(), [](const auto& one) {
        return one.first != 0 && one.first != kMicrophoneTrack && one.second.frames > 0;
    });
}

/// Whether the process may play at all, as far as is known of it: a launcher does not.
bool isAboutSound(const ProcessState& state, const SeenProcess& seen) {
    return state.facts.mayPlay || state.facts.unitsCreated > 0 || !state.streams.empty() ||
           !state.facts.hooksInstalled || !seen.library.empty() || !seen.device.empty();
}

/// What the process did about sound, where the hooks did their work and nothing was heard.
std::string whyUnitsAreSilent(const ProcessState& state, const SeenProcess& seen) {
    const HostFacts& facts = state.facts;
    if (const std::string frames = framesNeverPlayed(state); !frames.empty()) {
        return "what it had written was not played before the end: " + frames;
    }
    std::vector<std::string> lines = unrecordedStreamLines(state);
    for (std::string& line : leftOutLines(state)) {
        lines.push_back(std::move(line));
    }
    for (std::string& line : silentStreamLines(state)) {
        lines.push_back(std::move(line));
    }
    const std::string zeros = counted(facts.blocks, "block") + ", all zero";
    if (lines.empty() && hasTrack(state)) {
        return "all that it played was silence: " + zeros +
               "; is its sound switched off or turned down to nothing?";
    }
    if (!lines.empty()) {
        // The sound may have been where nothing was recorded: audio back ends keep silent units
        // running.
        std::string text = hasTrack(state) ? "all that could be recorded was silence: " + zeros
                                           : "nothing could be recorded";
        for (const std::string& line : lines) {
            text += "; " + line;
        }
        return text;
    }
    if (!state.streams.empty()) {
        return counted(state.streams.size(), "stream") + " opened, but no sound was delivered";
    }
    if (facts.unitsStarted > 0) {
        return counted(facts.unitsStarted, "start") + " of audio units, but no sound was delivered";
    }
    if (!seen.device.empty()) {
        return rawDeviceText(seen);
    }
    if (facts.unitsCreated > 0) {
        return counted(facts.unitsCreated, "audio unit") +
               " created, but none was started before the end";
    }
    if (!isAboutSound(state, seen)) {
        return "it uses none of the interfaces for sound that are recorded (ALSA, PulseAudio, "
               "PipeWire, JACK, SDL)";
    }
    if (facts.bridges == BridgeState::kMissing) {
        return "the library libTQAudioRecordBridge.so.1, through which ALSA, PulseAudio and the "
               "like are recorded, cannot be loaded; is the installation whole?";
    }
    if (seen.loadsApart && !seen.library.empty()) {
        return "it loads libraries apart from its own (dlmopen), where they cannot be followed, "
               "and " +
               seen.library + " is one of them";
    }
    return "no stream of sound was opened" +
           (seen.library.empty() ? "" : ", though " + seen.library + " is loaded") +
           ": it had nothing to play, could not open its device or reach its sound server, or its "
           "sound is switched off";
}

/// What was seen from outside of a recorded process, last program first.
SeenProcess seenOf(const Observer& observer, pid_t process) {
    const std::vector<SeenProcess>& list = observer.seenProcesses();
    const auto found = std::find_if(list.rbegin(), list.rend(), [process](const auto& one) {
        return one.pid == process && one.isTapped;
    });
    return found == list.rend() ? SeenProcess{} : *found;
}

/// Why nothing was heard of one process. `command` is what its program was started as, if it is the
/// recorded command; `seen` what was seen of it from outside.
std::string whySilent(const ProcessState& state, std::string_view command,
                      const SeenProcess& seen) {
    const HostFacts& facts = state.facts;
    const std::string& name = state.process.name;
    // What the user has to write behind "guard arm": the command as it was given.
    const std::string program = state.process.isCommand ? std::string(command) : name;
    if (facts.guardRefused && !facts.brokenGuard.empty()) {
        return name + ": " + guardFilesAdvice(facts.brokenGuard);
    }
    if (facts.guardRefused && facts.retriesLeft <= 0) {
        return name + ": the crash guard keeps the hooks out: its retries are used up, or it was " +
               "never armed; arm it with: tqaudiorecord guard arm " + program;
    }
    if (facts.guardRefused) {
        return name + ": the crash guard keeps the hooks out: the host forbids or does not want " +
               "them; see: tqaudiorecord guard status " + program;
    }
    if (!facts.hooksInstalled) {
        return name + ": the hooks could not be installed; -v shows the library's log";
    }
    return name + ": " + whyUnitsAreSilent(state, seen);
}

}  // namespace

std::string endedBy(std::string_view command, int signal) {
    return std::string(command) + ": it was ended by signal " + std::to_string(signal) + " (" +
           strsignal(signal) + ")";
}

std::vector<std::string> whySilent(const Observer& observer, std::string_view command,
                                   int endSignal) {
    std::vector<std::string> reasons;
    std::vector<std::string> launchers;
    for (const auto& [id, state] : observer.processes()) {
        if (observer.isHeard(state)) {
            return {};
        }
        const SeenProcess seen = seenOf(observer, state.process.pid);
        std::string reason = whySilent(state, command, seen);
        if (isAboutSound(state, seen)) {
            reasons.push_back(std::move(reason));
        } else if (std::find(launchers.begin(), launchers.end(), reason) == launchers.end()) {
            // A script may call the same tool again and again.
            launchers.push_back(std::move(reason));
        }
    }
    for (std::string& line : unrecordedProcessLines(observer, Evidence::kOfAnyReason)) {
        reasons.push_back(std::move(line));
    }
    if (reasons.empty()) {
        reasons = std::move(launchers);
    }
    if (endSignal != 0) {
        reasons.insert(reasons.begin(), endedBy(command, endSignal));
    }
    if (reasons.empty()) {
        reasons.push_back(std::string(command) +
                          ": the library was not loaded into any process: the program, or the "
                          "one that it starts, is statically linked, runs with raised privileges, "
                          "or ended at once");
    }
    return reasons;
}

}  // namespace tqrecorder
