#include "session/GuardCommand.h"

#include <TQAudioRecord/tq_capture.h>
#include <poll.h>
#include <pthread.h>

#include <chrono>

#include "core/GuardFiles.h"
#include "ipc/Printable.h"
#include "session/Acceptor.h"

namespace tqrecorder {
namespace {

constexpr std::chrono::seconds kPatience{30};

TapSettings::Task taskOf(Options::Action action) {
    switch (action) {
        case Options::Action::kGuardArm:
            return TapSettings::Task::kGuardArm;
        case Options::Action::kGuardDisarm:
            return TapSettings::Task::kGuardDisarm;
        default:
            return TapSettings::Task::kGuardStatus;
    }
}

void take(const Hello& hello, GuardReport& report) {
    report.name = printable(hello.name.data());
    report.state = static_cast<GuardState>(hello.guard);
    report.retriesLeft = hello.retriesLeft;
    report.usesPlatform = hello.usesPlatform != 0;
    report.brokenGuard = printable(hello.brokenGuard.data());
    if (hello.result != 0) {
        std::string why = "code " + std::to_string(hello.result);
        if (!report.brokenGuard.empty()) {
            why = guardFilesAdvice(report.brokenGuard);
        } else if (hello.result == TQ_ERROR_GUARD_FULL) {
            why = "other ids have all its room";
        }
        report.error = report.name + ": the crash guard cannot be changed: " + why;
        return;
    }
    report.isDone = true;
}

/// Waits for the program's one message. False when it ends without one or sends none in time.
bool hear(Acceptor& acceptor, Launch& launch, GuardReport& report) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
        const bool isOver = launch.isOver();
        for (const Connection& connection : acceptor.connections()) {
            if (connection.pid == launch.pid()) {
                take(connection.hello, report);
                return true;
            }
        }
        if (isOver) {
            return false;
        }
        pollfd wait{acceptor.descriptor(), POLLIN, 0};
        poll(&wait, 1, 5);
    }
    return false;
}

}  // namespace

GuardReport runGuardCommand(const Options& options, const std::string& gate) {
    GuardReport report;
    const std::string& command = options.command.front();
    LaunchPlan plan;
    plan.command = {command};
    plan.program = findHostProgram(command);
    plan.gate = gate;
    pthread_sigmask(SIG_SETMASK, nullptr, &plan.signals);
    Acceptor acceptor;
    if (!plan.program.isWorthStarting()) {
        report.error = plan.program.text(command);
        return report;
    }
    if (gate.empty()) {
        report.error =
            "the library to be loaded into COMMAND is missing; is the installation whole?";
        return report;
    }
    if (!acceptor.open(report.error)) {
        return report;
    }
    plan.settings.task = taskOf(options.action);
    plan.settings.socket = acceptor.name();
    plan.settings.recorder = getpid();
    Launch launch;
    if (!launch.start(plan, report.error)) {
        return report;
    }
    const bool heard = hear(acceptor, launch, report);
    // Its answer is here, or it runs without the library: its own code is not wanted.
    launch.signal(SIGKILL);
    while (!launch.isOver()) {
        pollfd wait{launch.endDescriptor(), POLLIN, 0};
        poll(&wait, 1, 5);
    }
    if (!heard) {
        report.error = command + ": the library could not be loaded into it";
    }
    return report;
}

std::string GuardReport::text() const {
    const std::string retries =
        std::to_string(retriesLeft) + (retriesLeft == 1 ? " retry" : " retries") + " left";
    switch (state) {
        case GuardState::kNeverEnabled:
            return name + ": not armed: it never was";
        case GuardState::kArmed:
            return name + ": armed, " + retries;
        case GuardState::kNotWanted:
            return name + ": not armed";
        case GuardState::kForbidden:
            return name + ": the program forbids the hooks, whatever else is armed";
        case GuardState::kUsedUp:
            return name + ": its retries are used up: the program has died inside the hooks " +
                   "too often; tqaudiorecord guard arm makes new ones";
        case GuardState::kUnreadable:
            return name + ": " + guardFilesAdvice(brokenGuard);
        case GuardState::kUnknown:
            break;
    }
    return name + ": unknown";
}

}  // namespace tqrecorder
