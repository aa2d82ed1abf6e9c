// tqaudiorecord: records the sound of a program.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/DefaultOutput.h"
#include "cli/Outputs.h"
#include "session/ControlClient.h"
#include "session/GuardCommand.h"
#include "session/RecordingSession.h"
#include "view/Diagnosis.h"

namespace {

using namespace tqrecorder;

constexpr int kFailure = 2;
/// A program has begun to play by then, if it ever does at its start.
constexpr double kShortSeconds = 1;

void complain(Screen& screen, const std::string& problem) {
    screen.line("tqaudiorecord: " + problem);
}

int tendGuard(const Options& options, Screen& screen) {
    const GuardReport report = runGuardCommand(options);
    if (!report.isDone) {
        complain(screen, report.error);
        return kFailure;
    }
    std::printf("%s\n", report.text().c_str());
    return 0;
}

int control(const Options& options, Screen& screen) {
    const ControlAnswer answer = options.action == Options::Action::kList
                                     ? listRecorders()
                                     : controlRecorder(options.controlPid, options.control);
    if (answer.isDone) {
        std::fputs(answer.text.c_str(), stdout);
        return 0;
    }
    screen.text("tqaudiorecord: " + answer.text);
    return kFailure;
}

/// Why the recording is silent; empty when it is not.
std::vector<std::string> reasonsFor(const Outputs& outputs, const HostProgram& program,
                                    const Options& options, const RecordingResult& result) {
    const std::string& command = options.command.front();
    const std::string unfit = program.text(command);
    const int endSignal = result.hostEndSignal;
    const bool isEndedByUser = result.end == RecordingResult::End::kSignal ||
                               result.end == RecordingResult::End::kDuration;
    if (isEndedByUser && unfit.empty() && !outputs.isAnythingRecorded() &&
        outputs.elapsedSeconds() < kShortSeconds) {
        // What else could be said would be a guess: the program had hardly begun.
        return {command + ": the recording ended so early that nothing had been played yet"};
    }
    if (outputs.hasAnyProcess() || unfit.empty()) {
        return outputs.silence(endSignal);
    }
    return endSignal == 0 ? std::vector<std::string>{unfit}
                          : std::vector<std::string>{endedBy(command, endSignal), unfit};
}

/// A standard stream that the caller has closed must not become a file of the recording, into which
/// messages would be printed then. What stands in its place fails like a closed one, and COMMAND
/// finds it closed.
void occupyStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) < 0) {
            // The lowest number that is free, which is this one.
            (void)::open("/dev/null", (stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
        }
    }
}

int record(Options options, Screen& screen) {
    tqcommon::Descriptor turn;
    if (options.output.empty() && options.tracksFolder.empty() && !options.isLiveAlone()) {
        turn = turnToChoose();
        options.output = defaultOutput(options, std::time(nullptr));
        options.isOutputChosen = true;
    }
    Outputs outputs(options, screen, STDOUT_FILENO);
    RecordingSession session(options, outputs);
    std::string error;
    // The command is looked at first: files of earlier recordings survive one that cannot start.
    if (!session.prepare(error) || !outputs.open(error)) {
        complain(screen, error);
        return kFailure;
    }
    turn.reset();
    if (options.isOutputChosen && !options.quiet) {
        complain(screen, "recording to " + options.output);
    }
    for (const std::string& warning : session.warnings()) {
        complain(screen, warning);
    }
    const RecordingResult result = session.run();
    // Nothing is held up any more.
    screen.settle();
    if (!result.message.empty()) {
        complain(screen, result.message);
    }
    if (result.end == RecordingResult::End::kNotStarted) {
        return kFailure;
    }
    for (const std::string& note : result.notes) {
        complain(screen, note);
    }
    const bool isWritten = result.isWhole && outputs.problems().empty();
    const int hostCode = result.hostExitCode.value_or(0);
    const bool isEmpty = !outputs.isAnythingRecorded();
    // A note has said already why there is nothing.
    const std::vector<std::string> reasons =
        result.notes.empty() ? reasonsFor(outputs, session.program(), options, result)
                             : std::vector<std::string>{};
    if (!options.quiet) {
        screen.text(outputs.summary(reasons));
    } else {
        for (const std::string& reason : reasons) {
            complain(screen, reason);
        }
    }
    return !isWritten ? kFailure : hostCode != 0 ? hostCode : isEmpty ? kFailure : 0;
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    // When the reader of the standard output goes away, write() fails; the signal would end us.
    std::signal(SIGPIPE, SIG_IGN);
    // So does it at a limit of file sizes, which is then told like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    Screen screen(STDERR_FILENO);
    try {
        const CommandLine line =
            parseCommandLine(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
        if (!line.proceed) {
            std::fputs(line.output.c_str(), stdout);
            if (!line.error.empty()) {
                screen.line(line.error);
            }
            return line.exitCode;
        }
        switch (line.options.action) {
            case Options::Action::kRecord:
                return record(line.options, screen);
            case Options::Action::kControl:
            case Options::Action::kList:
                return control(line.options, screen);
            case Options::Action::kGuardStatus:
            case Options::Action::kGuardArm:
            case Options::Action::kGuardDisarm:
                break;
        }
        return tendGuard(line.options, screen);
    } catch (const std::exception& problem) {
        complain(screen, problem.what());
        return kFailure;
    }
}
