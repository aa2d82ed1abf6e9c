#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
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
    static constexpr std::uint32_t kMostChannels = 64;

    enum class Taken { kYes, kNoSense, kTooManyWait };

    TappedProcess(int id, bool isCommand, std::uint64_t startTime);

    /// For a new process, and for one that has replaced its program by exec: drain() reads from
    /// this connection's memory once all is taken that the program before has left. kNoSense when
    /// the memory cannot be mapped, is larger than `mostBytes`, or its layout is wrong,
    /// kTooManyWait when too many programs wait for that already.
    [[nodiscard]] Taken take(Connection connection, std::uint64_t mostBytes);
    /// 0 for a start that could not be read.
    [[nodiscard]] bool is(pid_t pid, std::uint64_t startTime) const;
    [[nodiscard]] const Process& process() const { return process_; }
    /// Readable once the process has ended; -1 when the kernel cannot tell.
    [[nodiscard]] int endDescriptor() const { return end_.get(); }
    [[nodiscard]] bool isOver() const;
    /// Whether it lives and can be known by its number only: the recorder may open no file more.
    [[nodiscard]] bool isHardlyKnown() const { return startTime_ == 0 && !end_ && !isOver(); }
    [[nodiscard]] bool isCorrupt() const { return isCorrupt_; }
    /// Whether the program that it runs now has played something, recorded or not; also while one
    /// that it ran before has left something to be read.
    [[nodiscard]] bool hasPlayed() const;
    /// Does nothing when the process has ended.
    void signal(int number) const;

    /// What it delivers from now on is not taken any more.
    void close();
    /// Throws away what is left, which is told as lost; how many seconds of its mix that are.
    [[nodiscard]] double drop(Sink& sink);
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

    /// What one of the programs that the process runs, one after the other, shares.
    struct Program {
        SharedMapping memory;
        tqcommon::Descriptor socket;  ///< open as long as it is to be recorded
        Hello hello;
    };

    void read(Program program);
    void noteEnds();
    /// How far a ring is to be read.
    [[nodiscard]] std::uint64_t endOf(RingId id, const RingReader& ring) const;
    [[nodiscard]] bool drainProgram(Sink& sink, Deadline deadline);
    /// The one that the process runs now.
    [[nodiscard]] const Program& newest() const { return next_.empty() ? program_ : next_.back(); }
    [[nodiscard]] bool takeSound(Sink& sink, Deadline deadline);
    [[nodiscard]] bool takeEvents(Sink& sink, Deadline deadline);
    [[nodiscard]] bool takeLog(Sink& sink, Deadline deadline);
    [[nodiscard]] bool takeStreams(Sink& sink, Deadline deadline);
    [[nodiscard]] bool handBlock(Sink& sink, const RecordHeader& header,
                                 std::span<const std::byte> payload);
    void markCorrupt(Sink& sink);
    /// What a host calls one of its units, fit to be shown.
    [[nodiscard]] static std::string unitNameOf(std::string_view text);
    void addLeftOut(HostFacts& facts) const;

    Process process_;
    std::uint64_t startTime_;
    tqcommon::Descriptor end_;
    Program program_;           ///< that is read
    std::deque<Program> next_;  ///< those that came behind it
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
    bool isClosed_ = false;
    std::array<std::uint64_t, kRings> ends_{};  ///< behind close(): how far it had written
    bool hasStreamPlayed_ = false;              ///< of the program that it runs now
};

}  // namespace tqrecorder
