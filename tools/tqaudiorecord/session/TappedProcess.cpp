#include "session/TappedProcess.h"

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "common/ProcessStart.h"
#include "ipc/Printable.h"
#include "session/ProcessHandle.h"

namespace tqrecorder {
namespace {

/// Programs that a process may have run since one whose sound is still read. Each holds memory.
constexpr std::size_t kMostWaiting = 16;

}  // namespace

TappedProcess::TappedProcess(int id, bool isCommand, std::uint64_t startTime)
    : startTime_(startTime) {
    process_.id = id;
    process_.isCommand = isCommand;
}

bool TappedProcess::is(pid_t pid, std::uint64_t startTime) const {
    const bool isUnknown = startTime == 0 || startTime_ == 0;
    return process_.pid == pid && (isUnknown ? !isOver() : startTime_ == startTime);
}

TappedProcess::Taken TappedProcess::take(Connection connection, std::uint64_t mostBytes) {
    if (isCorrupt_) {
        return Taken::kYes;
    }
    if (next_.size() == kMostWaiting) {
        return Taken::kTooManyWait;
    }
    auto memory = SharedMapping::map(connection.memory.get(), mostBytes);
    if (!memory) {
        return Taken::kNoSense;
    }
    Program program{std::move(*memory), std::move(connection.socket), connection.hello};
    if (process_.pid != 0) {
        next_.push_back(std::move(program));
        return Taken::kYes;
    }
    read(std::move(program));
    process_.pid = connection.pid;
    // What it needed may have been the last one.
    connection.memory.reset();
    if (startTime_ == 0) {
        startTime_ = tqcommon::processStart(connection.pid);
    }
    end_ = openProcess(connection.pid);
    return Taken::kYes;
}

void TappedProcess::read(Program program) {
    before_ = facts();
    program_ = std::move(program);
    process_.name = printable(program_.hello.name.data());
    process_.usesPlatform = program_.hello.usesPlatform != 0;
    const SharedMapping& memory = program_.memory;
    sound_ = memory.reader(RingId::kSound);
    events_ = memory.reader(RingId::kEvents);
    log_ = memory.reader(RingId::kLog);
    streams_ = memory.reader(RingId::kStreams);
    hasStreamPlayed_ = false;
    if (isClosed_) {
        noteEnds();
    }
}

void TappedProcess::close() {
    isClosed_ = true;
    noteEnds();
}

void TappedProcess::noteEnds() {
    ends_ = {sound_.written(), events_.written(), log_.written(), streams_.written()};
}

std::uint64_t TappedProcess::endOf(RingId id, const RingReader& ring) const {
    return isClosed_ ? ends_.at(static_cast<std::size_t>(id)) : ring.written();
}

bool TappedProcess::isOver() const {
    if (end_) {
        pollfd wait{end_.get(), POLLIN, 0};
        return poll(&wait, 1, 0) > 0;
    }
    if (kill(process_.pid, 0) != 0) {
        return true;
    }
    // Without a descriptor left, none of a living process can be read.
    const std::uint64_t now = tqcommon::processStart(process_.pid);
    return now != startTime_ && now != 0 && startTime_ != 0;
}

void TappedProcess::signal(int number) const {
    if (end_) {
        signalProcess(end_, number);
    } else if (!isOver()) {
        kill(process_.pid, number);
    }
}

bool TappedProcess::hasPlayed() const {
    return hasStreamPlayed_ || !next_.empty() ||
           (process_.pid != 0 && program_.memory.page().facts.unitsStarted.load() > 0);
}

bool TappedProcess::drain(Sink& sink, Deadline deadline) {
    while (!isCorrupt_) {
        if (!drainProgram(sink, deadline)) {
            return false;
        }
        if (next_.empty()) {
            return true;
        }
        // The program has been replaced before the next one could connect: nothing comes behind.
        read(std::move(next_.front()));
        next_.pop_front();
        sink.processBegan(process_);
    }
    return true;
}

bool TappedProcess::drainProgram(Sink& sink, Deadline deadline) {
    highestFill_ = std::max(highestFill_, sound_.fill());
    // Sound has half of the time for itself: texts that never cease do not hold it up.
    const Deadline now = std::chrono::steady_clock::now();
    const Deadline half = now + (deadline - now) / 2;
    bool isAll = takeLog(sink, half);
    isAll = takeEvents(sink, half) && isAll;
    isAll = takeStreams(sink, half) && isAll;
    isAll = takeSound(sink, deadline) && isAll;
    const std::uint64_t blocks = sound_.takeLostRecords();
    if (blocks > 0) {
        sink.lost(process_, blocks, sound_.takeLostBytes());
    }
    return isAll || isCorrupt_;
}

}  // namespace tqrecorder
