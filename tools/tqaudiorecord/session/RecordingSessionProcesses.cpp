// Processes that connect, what they deliver, and how they leave the recording.

#include <algorithm>
#include <utility>
#include <vector>

#include "common/ProcessStart.h"
#include "ipc/Printable.h"
#include "session/Microphone.h"
#include "session/RecordingSession.h"

namespace tqrecorder {
namespace {

using std::chrono::milliseconds;

/// Each of many processes gets as long at least.
constexpr milliseconds kLeastTurn{1};

}  // namespace

void RecordingSession::acceptConnections() {
    std::vector<Connection> connections = acceptor_.connections();
    if (acceptor_.isShort()) {
        tellShort();
    }
    for (Connection& connection : connections) {
        const Hello& hello = connection.hello;
        if (hello.isRecording == 0) {
            continue;
        }
        if (connection.memory) {
            takeConnection(std::move(connection));
        } else if (!acceptor_.isShort()) {
            notes_.add(printable(hello.name.data()) +
                       (hello.lacksDescriptors != 0
                            ? ": its limit of open files is used up; not recorded (ulimit -n says "
                              "how many)"
                            : ": no memory to share with the recorder; not recorded (--ring says "
                              "how much)"));
        }
    }
}

void RecordingSession::tellShort() {
    if (!std::exchange(isShortTold_, true)) {
        const std::string line =
            "the recorder's own limit of open files is used up; programs that start now are not "
            "recorded before others have ended (ulimit -n says how many)";
        sink_.notice(line);
        notes_.add(line);
    }
}

void RecordingSession::takeConnection(Connection connection) {
    if (!firstConnection_) {
        firstConnection_ = Clock::now();
    }
    const pid_t pid = connection.pid;
    look_.setTapped(pid);
    const std::string name = printable(connection.hello.name.data());
    const bool isRestartFailed = connection.hello.isRestartFailed != 0;
    const std::uint64_t startTime = tqcommon::processStart(pid);
    auto known = std::find_if(processes_.begin(), processes_.end(),
                              [&](const auto& one) { return one->is(pid, startTime); });
    if (known == processes_.end()) {
        const bool isCommand = pid == host_.pid();
        processes_.push_back(std::make_unique<TappedProcess>(lastId_ + 1, isCommand, startTime));
        known = processes_.end() - 1;
    }
    const bool isNew = (*known)->process().pid == 0;
    const std::uint64_t mostBytes =
        std::max(SharedMapping::kMostBytes, SharedMapping::sizeFor(soundBytes()));
    const TappedProcess::Taken taken = (*known)->take(std::move(connection), mostBytes);
    if (taken != TappedProcess::Taken::kYes) {
        notes_.add(name +
                   (taken == TappedProcess::Taken::kTooManyWait
                        ? ": one program replaced another faster than they can be read; not "
                          "recorded"
                        : ": what it shares with the recorder makes no sense; not recorded"));
        if (isNew) {
            processes_.erase(known);
        }
        return;
    }
    lastId_ += isNew ? 1 : 0;
    if ((*known)->isHardlyKnown()) {
        tellShort();
    }
    (*known)->setDuckOrder(duckOrder_);
    if (isRestartFailed) {
        notes_.add(name + ": its crash guard was armed just now; it can be recorded from " +
                   "its next launch on");
    }
    if (isNew) {
        sink_.processBegan((*known)->process());
    }
}

void RecordingSession::takeHeard() {
    if (microphone_ == nullptr) {
        return;
    }
    microphone_->take([this](const HeardBlock& block) {
        sink_.heard(block);
        if (const std::string line = voiceWatch_ ? voiceWatch_->add(block) : ""; !line.empty()) {
            sink_.notice(line);
        }
    });
}

void RecordingSession::drain(milliseconds turn) {
    isMoreLeft_ = false;
    if (!isClosed_) {
        takeHeard();
    }
    const milliseconds share = std::max(
        kLeastTurn,
        turn / static_cast<milliseconds::rep>(std::max<std::size_t>(1, processes_.size())));
    for (const auto& process : processes_) {
        if (duckSource_ != nullptr && firstConnection_) {
            const auto time = std::chrono::duration_cast<std::chrono::microseconds>(
                Clock::now() - *firstConnection_);
            process->setDuckLevel(duckSource_->level(static_cast<std::uint64_t>(time.count())));
        }
        const bool wasCorrupt = process->isCorrupt();
        isMoreLeft_ = !process->drain(sink_, Clock::now() + share) || isMoreLeft_;
        if (process->isCorrupt() && !wasCorrupt) {
            notes_.add(process->process().name +
                       ": its shared memory is corrupt; the rest is not recorded");
        }
    }
    sink_.turnEnded(!isMoreLeft_);
}

void RecordingSession::removeEnded() {
    const Clock::time_point deadline = Clock::now() + kTurn;
    for (auto place = processes_.begin(); place != processes_.end();) {
        TappedProcess& process = **place;
        if (!process.isOver()) {
            ++place;
            continue;
        }
        if (!process.drain(sink_, deadline)) {
            ++place;
            continue;
        }
        sink_.processEnded(process.process(), process.facts());
        place = processes_.erase(place);
    }
}

bool RecordingSession::isAnyEndedLeft() const {
    return std::any_of(processes_.begin(), processes_.end(),
                       [](const auto& process) { return process->isOver(); });
}

}  // namespace tqrecorder
