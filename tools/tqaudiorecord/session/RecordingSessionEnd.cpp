// What ends a recording, and what becomes of the processes then.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>

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
/// At the end what was delivered before it is still taken.
constexpr milliseconds kLastTurn{2000};
/// Who connects asks within that time, or finds that the recording is over.
constexpr milliseconds kLastAnswers{300};
/// In which a program that plays at all has begun: of its own life, and of the time since COMMAND
/// and all that played have ended. Games load for seconds before their first sound.
constexpr milliseconds kLoading{20000};
/// Between two looks at which processes there are.
constexpr milliseconds kTreePause{50};
/// That somebody is waited for is said behind that: most commands leave nobody.
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

bool RecordingSession::isTreeOver() {
    if (endsWithCommand()) {
        return true;
    }
    const auto player = std::find_if(processes_.begin(), processes_.end(),
                                     [this](const auto& one) { return isPlayer(*one); });
    if (player != processes_.end()) {
        quietSince_.reset();
        tellOnce(isPlayerTold_, "COMMAND has ended; the recording goes on with " +
                                    nameOf((*player)->process()) + " until that ends");
        return false;
    }
    const Clock::time_point now = Clock::now();
    quietSince_ = quietSince_.value_or(now);
    if (now >= nextTreeLook_) {
        tree_.reap(host_.pid());
        const std::vector<ProcessTree::Member> members = tree_.members();
        isTreeExpected_ = std::any_of(members.begin(), members.end(), [](const auto& one) {
            return one.age < kLoading && !isService(one.name);
        });
        nextTreeLook_ = now + kTreePause;
    }
    if (!isTreeExpected_ || now - *quietSince_ > kLoading) {
        return true;
    }
    if (now - *quietSince_ > kSilentWait) {
        tellOnce(isWaitTold_,
                 "COMMAND has ended; what it has started may play yet, and is waited "
                 "for, 20 seconds at the longest");
    }
    return false;
}

void RecordingSession::tellOnce(bool& isTold, const std::string& line) {
    if (!isTold) {
        isTold = true;
        sink_.notice(line);
    }
}

void RecordingSession::finish(RecordingResult& result) {
    drain(kLastTurn);
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

/// False when another signal says not to wait any longer.
bool RecordingSession::waitForEnds(milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    while (isAnyToBeEnded() && Clock::now() < deadline) {
        std::array<pollfd, 2> list{{{signals_.descriptor(), POLLIN, 0},
                                    {host_.isOver() ? -1 : host_.endDescriptor(), POLLIN, 0}}};
        poll(list.data(), list.size(), static_cast<int>(kEndPause.count()));
        const auto signal = signals_.next();
        if (signal && signal->number != SIGUSR1 && signal->number != SIGUSR2) {
            return false;
        }
        // One that nobody has waited for is still there where the system gives no descriptor of it.
        tree_.reap(host_.pid());
    }
    return true;
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
    }
    if (!hostKnows_ || (waitForEnds(kTerminalPatience) && isAnyToBeEnded())) {
        tell(SIGTERM, Whom::kNotToldYet);
        (void)waitForEnds(kHostPatience);
    }
    if (isAnyToBeEnded()) {
        tell(SIGKILL, Whom::kAll);
        if (waitForEnds(kKillPatience) && isAnyToBeEnded()) {
            notes_.add("not all that COMMAND has started could be ended");
        }
    }
    tree_.reap(host_.pid());
}

}  // namespace tqrecorder
