// What is asked of a recording while it runs: by commands, and by signals.

#include <algorithm>
#include <csignal>
#include <utility>

#include "session/RecordingSession.h"

namespace tqrecorder {

bool RecordingSession::takeCommands() {
    for (ControlRequest& request : control_.requests()) {
        if (request.command.kind == ControlCommand::Kind::kStop) {
            waitForEnd_.push_back(std::move(request.client));
        } else if (const ControlAnswer answer = obey(request.command); answer.ticket != 0) {
            waitForAnswer_.emplace(answer.ticket, std::move(request.client));
        } else {
            ControlServer::answer(request.client, answer);
        }
    }
    answerLate();
    return !waitForEnd_.empty();
}

void RecordingSession::takeSignals() {
    while (const auto signal = signals_.next()) {
        if (signal->number == SIGUSR1) {
            (void)sink_.control({ControlCommand::Kind::kSave});
            // Behind finish() it is done at once.
            answerLate();
        } else if (signal->number == SIGUSR2) {
            (void)sink_.control({ControlCommand::Kind::kTogglePause});
        } else if (!isSameEnd(signal->number)) {
            endSignals_.push_back(*signal);
        }
    }
}

/// A terminal that closes sends SIGHUP more than once, and a user's session that ends SIGTERM and
/// SIGHUP: that is nobody who does not want to wait.
bool RecordingSession::isSameEnd(int signal) {
    const Clock::time_point now = Clock::now();
    if (firstEndSignal_ == 0) {
        firstEndSignal_ = signal;
        firstEndAt_ = now;
        return false;
    }
    constexpr std::chrono::seconds kAtOnce{1};
    return now - firstEndAt_ < kAtOnce && (signal == SIGHUP || signal != firstEndSignal_);
}

std::optional<SignalGate::Signal> RecordingSession::nextEndSignal() {
    takeSignals();
    if (endSignals_.empty()) {
        return std::nullopt;
    }
    const SignalGate::Signal first = endSignals_.front();
    endSignals_.pop_front();
    return first;
}

/// Nobody waits for the answer to a signal.
void RecordingSession::answerLate() {
    for (const ControlAnswer& answer : sink_.lateAnswers()) {
        const auto client = waitForAnswer_.find(answer.ticket);
        if (client != waitForAnswer_.end()) {
            ControlServer::answer(client->second, answer);
            waitForAnswer_.erase(client);
        }
    }
}

ControlAnswer RecordingSession::obey(const ControlCommand& command) {
    const bool isDucking = command.kind == ControlCommand::Kind::kDuck;
    if (!isDucking && command.kind != ControlCommand::Kind::kUnduck) {
        return sink_.control(command);
    }
    constexpr double kNone = 1;
    const double order = isDucking ? command.number.value_or(options_.duckDecibels) : kNone;
    if (isDucking && !(order >= -96 && order <= 0)) {
        return {false, "duck wants a number from -96 to 0\n"};
    }
    duckOrder_ = static_cast<float>(order);
    for (const auto& process : processes_) {
        process->setDuckOrder(duckOrder_);
    }
    if (!isDucking) {
        return {true, "not ducked any more\n"};
    }
    const auto isHooked = [](const auto& process) { return process->facts().hooksInstalled; };
    if (processes_.empty()) {
        return {true, "nothing plays yet; what comes is ducked\n"};
    }
    if (std::none_of(processes_.begin(), processes_.end(), isHooked)) {
        return {false, "nothing can be ducked: the hooks are not in the program; -v shows why\n"};
    }
    return {true, "ducked\n"};
}

}  // namespace tqrecorder
