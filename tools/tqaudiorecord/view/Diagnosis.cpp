#include "view/Diagnosis.h"

#include <algorithm>

#include "core/GuardFiles.h"
#include "view/LeftOut.h"

namespace tqrecorder {
namespace {

std::string counted(std::uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

bool heard(const ProcessState& state) {
    for (const auto& [track, source] : state.sources) {
        if (source.whole.peak() > 0) {
            return true;
        }
    }
    return false;
}

/// Whether any unit's own blocks came. The mix alone says nothing: it goes on without units.
bool hasTrack(const ProcessState& state) {
    return std::any_of(state.sources.begin(), state.sources.end(),
                       [](const auto& one) { return one.first != 0 && one.second.frames > 0; });
}

/// What is known of the units where the hooks did their work and nothing was heard.
std::string whyUnitsAreSilent(const ProcessState& state) {
    const HostFacts& facts = state.facts;
    if (hasTrack(state)) {
        return "the program rendered silence: " + counted(facts.blocks, "block") + ", all zero";
    }
    if (!facts.leftOut.empty()) {
        std::string text = "nothing could be recorded";
        for (const std::string& line : leftOutLines(state)) {
            text += "; " + line;
        }
        return text;
    }
    if (facts.unitsStarted > 0) {
        return counted(facts.unitsStarted, "start") + " of audio units, but no sound was delivered";
    }
    if (facts.unitsCreated > 0) {
        return counted(facts.unitsCreated, "audio unit") + " created, but none was ever started";
    }
    return "no audio unit was created: the program does not play through the platform, or not yet";
}

}  // namespace

std::string whySilent(const ProcessState& state, std::string_view command) {
    const HostFacts& facts = state.facts;
    const std::string& name = state.process.name;
    // What the user has to write behind "guard arm": the command as it was given.
    const std::string program = state.process.isCommand ? std::string(command) : name;
    if (heard(state)) {
        return {};
    }
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
    return name + ": " + whyUnitsAreSilent(state);
}

std::vector<std::string> whySilent(const Observer& observer, std::string_view command) {
    std::vector<std::string> reasons;
    for (const auto& [id, state] : observer.processes()) {
        std::string reason = whySilent(state, command);
        if (reason.empty()) {
            return {};
        }
        reasons.push_back(std::move(reason));
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
