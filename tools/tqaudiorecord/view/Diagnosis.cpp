#include "view/Diagnosis.h"

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

}  // namespace

std::string whySilent(const ProcessState& state, std::string_view command) {
    const HostFacts& facts = state.facts;
    const std::string& name = state.process.name;
    // What the user has to write behind "guard arm": the command as it was given.
    const std::string program = state.process.isCommand ? std::string(command) : name;
    if (heard(state)) {
        return {};
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
    if (facts.unitsCreated == 0) {
        return name + ": no audio unit was created: the program does not play through the " +
               "platform, or not yet";
    }
    if (facts.unitsWithMicrophone > 0 && facts.unitsWithMicrophone >= facts.unitsStarted &&
        facts.blocksWithSound == 0) {
        return name + ": " + counted(facts.unitsWithMicrophone, "audio unit") +
               " with the microphone on: such units are not captured, by rule";
    }
    if (facts.unitsStarted == 0) {
        return name + ": " + counted(facts.unitsCreated, "audio unit") +
               " created, but none was ever started";
    }
    if (facts.blocks == 0 && state.sources.empty()) {
        return name + ": " + counted(facts.unitsStarted, "audio unit") +
               " started, but no sound was delivered";
    }
    return name + ": the program rendered silence: " + counted(facts.blocks, "block") +
           ", all zero";
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
                          ": the library was not loaded into any process: the program is "
                          "statically linked, runs with raised privileges, or ended at once");
    }
    return reasons;
}

}  // namespace tqrecorder
