#include "cli/SubCommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "cli/OptionTable.h"
#include "ipc/ControlText.h"

namespace tqrecorder {
namespace {

constexpr int kUsageError = 1;

}  // namespace

CommandLine wrongUsage(std::string problem) {
    std::replace(problem.begin(), problem.end(), '\n', ' ');
    CommandLine result;
    result.exitCode = kUsageError;
    result.error = "tqaudiorecord: " + problem + "; try tqaudiorecord --help";
    return result;
}

CommandLine listCommand(const std::vector<std::string>& words) {
    if (!words.empty()) {
        return wrongUsage("--list takes no COMMAND: it asks the recorders that are running");
    }
    CommandLine result;
    result.proceed = true;
    result.options.action = Options::Action::kList;
    result.options.control.kind = ControlCommand::Kind::kList;
    return result;
}

CommandLine guardCommand(const std::vector<std::string>& words) {
    static const std::map<std::string, Options::Action> kActions{
        {"status", Options::Action::kGuardStatus},
        {"arm", Options::Action::kGuardArm},
        {"disarm", Options::Action::kGuardDisarm}};
    const auto action = words.size() > 1 ? kActions.find(words[1]) : kActions.end();
    if (action == kActions.end()) {
        return wrongUsage("guard wants status, arm or disarm (a program of that name: -- guard)");
    }
    if (words.size() != 3 || words[2].empty()) {
        return wrongUsage("guard " + words[1] + " wants one COMMAND");
    }
    CommandLine result;
    result.proceed = true;
    result.options.action = action->second;
    result.options.command = {words[2]};
    return result;
}

CommandLine controlCommand(std::vector<std::string> words) {
    CommandLine result;
    result.proceed = true;
    result.options.action = Options::Action::kControl;
    if (words.size() > 2 && words[1] == "--pid") {
        int pid = 0;
        if (!CLI::detail::lexical_cast(words[2], pid) || pid < 1) {
            return wrongUsage("ctl --pid wants the process number of a recorder, not " + words[2]);
        }
        result.options.controlPid = pid;
        words.erase(words.begin() + 1, words.begin() + 3);
    }
    std::string text = words.size() > 1 ? words[1] : "";
    const std::string argument = words.size() > 2 ? words[2] : "";
    const bool takesNumber = text == "save" || text == "duck";
    const bool isJson = text == "status" && argument == "--json";
    double number = 0;
    if (takesNumber && !argument.empty() && !CLI::detail::lexical_cast(argument, number)) {
        return wrongUsage("ctl " + text + ": a number is wanted, not " + argument);
    }
    if (!argument.empty() && (takesNumber || isJson)) {
        text += isJson ? " json" : " " + numberText(number);
    }
    const auto command = commandFromText(text);
    using Kind = ControlCommand::Kind;
    if (!command || command->kind == Kind::kTogglePause || command->kind == Kind::kFiles ||
        command->kind == Kind::kList || words.size() > 3 ||
        (words.size() == 3 && !takesNumber && !isJson)) {
        return wrongUsage(
            "ctl wants save [SECONDS], pause, resume, split, stop, status [--json], duck [DB] "
            "or unduck (a program of that name: -- ctl)");
    }
    result.options.control = *command;
    return result;
}

}  // namespace tqrecorder
