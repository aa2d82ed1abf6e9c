#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "core/Sink.h"
#include "ipc/SharedMemory.h"
#include "session/Acceptor.h"

namespace tqrecorder {

/// One recorded process as the recorder sees it: hands what its rings hold to a sink. The rings are
/// read as untrusted input: whatever the process writes into them can at most end its recording.
class TappedProcess {
  public:
    /// When the process `pid` was started, in the kernel's own unit; 0 when it is gone. With the
    /// pid it names a process for good.
    [[nodiscard]] static std::uint64_t startTimeOf(pid_t pid);

    TappedProcess(int id, bool isCommand, std::uint64_t startTime);

    /// Reads from this connection's memory from now on: for a new process, and for one that has
    /// replaced its program by exec. False when the memory cannot be mapped, is larger than
    /// `mostBytes`, or its layout is wrong.
    [[nodiscard]] bool take(Connection connection, std::uint64_t mostBytes);
    [[nodiscard]] bool is(pid_t pid, std::uint64_t startTime) const {
        return process_.pid == pid && startTime_ == startTime;
    }
    [[nodiscard]] const Process& process() const { return process_; }
    /// Readable once the process has ended; -1 when the kernel cannot tell.
    [[nodiscard]] int endDescriptor() const { return end_.get(); }
    [[nodiscard]] bool isOver() const;
    [[nodiscard]] bool isCorrupt() const { return isCorrupt_; }
    /// Whether the program that it runs now has played something, recorded or not.
    [[nodiscard]] bool hasPlayed() const;
    /// Does nothing when the process has ended.
    void signal(int number) const;

    /// Hands over what was there when it was called. False when some of it is left at the deadline.
    bool drain(Sink& sink, std::chrono::steady_clock::time_point deadline);
    void tellNumbers(Sink& sink);
    [[nodiscard]] HostFacts facts() const;
    /// The level in dBFS that ducking is to follow.
    void setDuckLevel(float decibels);
    /// Ducking as the user asks for it meanwhile, see SharedPage::duckOrder.
    void setDuckOrder(float order);

  private:
    using Deadline = std::chrono::steady_clock::time_point;
    [[nodiscard]] bool takeSound(Sink& sink, Deadline deadline);
    [[nodiscard]] bool takeEvents(Sink& sink, Deadline deadline);
    [[nodiscard]] bool takeLog(Sink& sink, Deadline deadline);
    [[nodiscard]] bool takeStreams(Sink& sink, Deadline deadline);
    [[nodiscard]] bool handBlock(Sink& sink, const RecordHeader& header,
                                 std::span<const std::byte> payload);
    void markCorrupt(Sink& sink);
    void addLeftOut(HostFacts& facts) const;

    Process process_;
    std::uint64_t startTime_;
    tqcommon::Descriptor socket_;  ///< open as long as the process is to be recorded
    tqcommon::Descriptor end_;
    Hello hello_;
    SharedMapping memory_;
    RingReader sound_;
    RingReader events_;
    RingReader log_;
    RingReader streams_;
    HostFacts before_;  ///< of the programs that this process ran before
    std::uint64_t blocks_ = 0;
    std::uint64_t blocksWithSound_ = 0;
    double highestFill_ = 0;
    std::vector<std::byte> interleaved_;
    bool isCorrupt_ = false;
    bool hasStreamPlayed_ = false;  ///< of the program that it runs now
};

}  // namespace tqrecorder
