// What ends a recording, and what becomes of the processes then.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>

#include "core/Services.h"
#include "session/EndingExcuse.h"
#include "session/Microphone.h"
#include "session/RecordingSession.h"

namespace tqrecorder {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kHostPatience{5000};
/// The terminal sends its interrupt to the host as well. Many programs quit without saving at a
/// second one, so the host gets this long to end by itself.
constexpr milliseconds kTerminalPatience{2000};
/// Who is killed has gone by then, unless a device's driver holds it.
constexpr milliseconds kKillPatience{5000};
constexpr milliseconds kEndPause{20};
/// Between two pieces of what is still to be written.
constexpr milliseconds kSavePause{5};
/// For that long at least, whatever signals come, what was delivered before the end is taken.
constexpr milliseconds kLastTurn{2000};
/// Who connects asks within that time, or finds that the recording is over.
constexpr milliseconds kLastAnswers{300};
/// Between two looks at which processes there are.
constexpr milliseconds kTreePause{50};
/// That something is waited for is said behind that: most ends leave nothing to wait for.
constexpr milliseconds kSilentWait{1000};

std::string nameOf(const Process& process) {
    return process.name + " (" + std::to_string(process.pid) + ")";
}

}  // namespace

bool RecordingSession::isPlayer(const TappedProcess& process) const {
    const Process& one = process.process();
    const Choice choice{options_.only, options_.without};
    return process.hasPlayed() && !process.isCorrupt() && !isService(one.name) &&
           !choice.excludes(one.name);
}

bool RecordingSession::mayPlay(pid_t process) const {
    const std::vector<SeenProcess> seen = look_.processes();
    return std::any_of(processes_.begin(), processes_.end(),
                       [process](const auto& one) {
                           return one->process().pid == process && one->facts().mayPlay;
                       }) ||
           std::any_of(seen.begin(), seen.end(), [process](const SeenProcess& one) {
               return one.pid == process && !one.library.empty();
           });
}

bool RecordingSession::isTreeOver() {
    if (endsWithCommand()) {
        return true;
    }
    const auto player = std::find_if(processes_.begin(), processes_.end(),
                                     [this](const auto& one) { return isPlayer(*one); });
    if (player != processes_.end()) {
        loading_.forget();
        tellOnce(isPlayerTold_, "COMMAND has ended; the recording goes on with " +
                                    nameOf((*player)->process()) + " until that ends");
        return false;
    }
    const Clock::time_point now = Clock::now();
    loading_.begin(now);
    if (now >= nextTreeLook_) {
        tree_.reap(host_.pid());
        isTreeExpected_ = loading_.isAnyLoading(now, tree_.members(),
                                                [this](pid_t process) { return mayPlay(process); });
        nextTreeLook_ = now + kTreePause;
    }
    if (!isTreeExpected_) {
        return true;
    }
    if (loading_.elapsed(now) > kSilentWait) {
        tellOnce(isWaitTold_,
                 "COMMAND has ended; what it has started may play yet, and is waited for, 20 "
                 "seconds, and as long as it loads");
    }
    return false;
}

void RecordingSession::tellOnce(bool& isTold, const std::string& line) {
    if (!isTold) {
        isTold = true;
        sink_.notice(line);
    }
}

/// What was delivered before the end is still taken, however long that takes, unless the user says
/// not to wait.
void RecordingSession::takeTheLast(RecordingResult& result) {
    takeHeard();
    for (const auto& process : processes_) {
        process->close();
    }
    isClosed_ = true;
    sink_.closed();
    drain(kLastTurn);
    bool isTold = false;
    while (isMoreLeft_ && !nextEndSignal()) {
        tellOnce(isTold,
                 "what was played before the end is still to be written; another Ctrl-C "
                 "leaves it out");
        drain();
        // Who asks for the end is answered once the files are whole.
        (void)takeCommands();
        if (Clock::now() >= nextTick_) {
            nextTick_ = Clock::now() + kTickPause;
            sink_.tick(elapsedMicroseconds());
        }
    }
    for (const auto& process : processes_) {
        if (const double seconds = process->drop(sink_); seconds > 0) {
            std::array<char, 32> text{};
            (void)std::snprintf(text.data(), text.size(), "%.1f", seconds);
            notes_.add(process->process().name + ": the last " + text.data() +
                       " s were not written, as a second signal said not to wait for them");
            result.isWhole = false;
        }
    }
}

/// Clips that were asked for are kept, unless the user says not to wait for anything.
void RecordingSession::waitForSaves(const RecordingResult& result) {
    const Clock::time_point begin = Clock::now();
    bool isTold = false;
    // A save may have been asked for together with the end.
    takeSignals();
    while (sink_.isSaving()) {
        if (!result.isWhole || nextEndSignal()) {
            sink_.giveUpSaves();
            return;
        }
        if (Clock::now() - begin > kSilentWait) {
            tellOnce(
                isTold,
                "what was asked for is still on its way to disk or reader; another Ctrl-C cuts "
                "it off");
        }
        poll(nullptr, 0, static_cast<int>(kSavePause.count()));
        (void)takeCommands();
        if (Clock::now() >= nextTick_) {
            nextTick_ = Clock::now() + kTickPause;
            sink_.tick(elapsedMicroseconds());
        }
    }
}

void RecordingSession::finish(RecordingResult& result) {
    takeTheLast(result);
    if (microphone_ != nullptr) {
        microphone_->stop();
    }
    noteThoseThatRanOn(result);
    for (const auto& process : processes_) {
        process->tellNumbers(sink_);
        sink_.processEnded(process->process(), process->facts());
    }
    lookAround();
    for (const SeenProcess& seen : look_.processes()) {
        sink_.seen(seen);
    }
    sink_.tick(elapsedMicroseconds());
    waitForSaves(result);
    // Before the host is waited for: the files are whole even if the user kills the recorder then.
    sink_.finish();
    answerTheLast();
    if (result.end != RecordingResult::End::kHostEnded && options_.endsHost) {
        endHost();
    }
    tree_.reap(host_.pid());
    if (!tree_.roots().empty() || std::any_of(processes_.begin(), processes_.end(),
                                              [](const auto& one) { return !one->isOver(); })) {
        host_.leaveRunning();
    }
    // Closes the sockets. Taps that still run see that and remove their listeners.
    processes_.clear();
    result.notes = notes();
}

/// Those that asked while the files were completed are answered like the others.
void RecordingSession::answerTheLast() {
    const Clock::time_point deadline = Clock::now() + kLastAnswers;
    (void)takeCommands();
    while (control_.isAnybodyComing() && Clock::now() < deadline) {
        poll(nullptr, 0, 1);
        (void)takeCommands();
    }
    for (const tqcommon::Descriptor& client : waitForEnd_) {
        ControlServer::answer(client, sink_.control({ControlCommand::Kind::kFiles}));
    }
    waitForEnd_.clear();
}

void RecordingSession::noteThoseThatRanOn(const RecordingResult& result) {
    for (const auto& process : processes_) {
        const Process& one = process->process();
        if (result.end != RecordingResult::End::kHostEnded || process->isOver() ||
            isService(one.name)) {
            continue;
        }
        if (endsWithCommand() && process->hasPlayed()) {
            notes_.add(nameOf(one) +
                       " ran on when COMMAND had ended, and is recorded no further; "
                       "leave --end-with command out, or let COMMAND wait for it");
        } else if (!endsWithCommand() && process->facts().mayPlay && !process->hasPlayed()) {
            notes_.add(nameOf(one) +
                       " ran on when COMMAND had ended, and had not played by then; "
                       "let COMMAND wait for it if it should be recorded");
        }
    }
}

bool RecordingSession::isAnyToBeEnded() {
    return !host_.isOver() || std::any_of(processes_.begin(), processes_.end(), [this](auto& one) {
        return isPlayer(*one) && !one->isOver();
    });
}

/// What a shell has started in the background does not hear the terminal's key, and may still load.
bool RecordingSession::isAnyToBeTold() {
    return isAnyToBeEnded() ||
           std::any_of(processes_.begin(), processes_.end(), [](const auto& one) {
               return one->facts().mayPlay && !isService(one->process().name) && !one->isOver();
           });
}

/// False when another signal says not to wait any longer.
bool RecordingSession::waitForEnds(milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    while (isAnyToBeEnded() && Clock::now() < deadline) {
        std::array<pollfd, 2> list{{{signals_.descriptor(), POLLIN, 0},
                                    {host_.isOver() ? -1 : host_.endDescriptor(), POLLIN, 0}}};
        poll(list.data(), list.size(), static_cast<int>(kEndPause.count()));
        if (nextEndSignal()) {
            return false;
        }
        // One that nobody has waited for is still there where the system gives no descriptor of it.
        tree_.reap(host_.pid());
    }
    return true;
}

std::string RecordingSession::namesOfTheLast() {
    std::string names;
    for (const auto& process : processes_) {
        if (!process->isOver() && !isService(process->process().name)) {
            names += (names.empty() ? "" : ", ") + nameOf(process->process());
        }
    }
    return names.empty() ? options_.command.front() : names;
}

void RecordingSession::endHost() {
    enum class Whom { kAll, kThoseOutsideTheGroup, kNotToldYet };
    std::set<pid_t> told;
    const auto tell = [this, &told](int number, Whom whom) {
        // The terminal's key has reached those that are in the recorder's group.
        const auto isMeant = [whom, &told](pid_t process) {
            const bool isOutside = getpgid(process) != getpgrp();
            return whom == Whom::kAll ||
                   (whom == Whom::kThoseOutsideTheGroup ? isOutside : !told.contains(process));
        };
        if (!host_.isOver() && isMeant(host_.pid())) {
            told.insert(host_.pid());
            host_.signal(number);
        }
        for (const auto& process : processes_) {
            const Process& one = process->process();
            if (!one.isCommand && !isService(one.name) && isMeant(one.pid)) {
                told.insert(one.pid);
                process->signal(number);
            }
        }
    };
    // Whichever signal it gets, it may be in a callback then.
    excuseEnding(host_.pid());
    for (const auto& process : processes_) {
        excuseEnding(process->process().pid);
    }
    if (hostKnows_) {
        tell(SIGTERM, Whom::kThoseOutsideTheGroup);
        (void)waitForEnds(kTerminalPatience);
    }
    if (!hostKnows_ || isAnyToBeTold()) {
        tell(SIGTERM, Whom::kNotToldYet);
        (void)waitForEnds(kHostPatience);
    }
    if (isAnyToBeEnded()) {
        sink_.notice("SIGKILL ends what did not end by SIGTERM: " + namesOfTheLast());
        tell(SIGKILL, Whom::kAll);
        if (waitForEnds(kKillPatience) && isAnyToBeEnded()) {
            notes_.add("not all that COMMAND has started could be ended");
        }
    }
    tree_.reap(host_.pid());
}

}  // namespace tqrecorder
