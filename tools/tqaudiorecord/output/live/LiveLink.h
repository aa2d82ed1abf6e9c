#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "common/Descriptor.h"
#include "output/live/LivePackets.h"

namespace tqrecorder {

/// The programs that hold live sources, in the order in which they are asked. Empty where they are
/// not installed.
[[nodiscard]] std::vector<std::string> findLiveHolders();

/// The recorder's side of the program that holds its live sources in a sound server. That one is a
/// process of its own because a source of PulseAudio outlives the program that made it: whatever
/// becomes of the recorder, the holder sees its socket close and takes the sources back. It ends
/// with its server; this starts another one when a server is there again.
/// [one host thread at a time]
class LiveLink {
  public:
    enum class State { kDown, kAsking, kUp };
    struct Refused {
        std::uint32_t source;
        std::string reason;
    };

    explicit LiveLink(std::vector<std::string> holders);
    ~LiveLink();
    LiveLink(const LiveLink&) = delete;
    LiveLink& operator=(const LiveLink&) = delete;

    /// Moves on without waiting: takes answers, starts the next holder, starts again after a while.
    /// `state()` may be another one afterwards.
    void poll();
    /// The same until it is known whether a server answers; each holder has that long.
    void await(std::chrono::milliseconds patience);
    /// What cannot be taken at once is kept, up to a bound; without a server nothing is.
    void send(const LiveHeader& header, std::span<const std::byte> payload);
    /// The holder is to take everything back; waits that long for it.
    void finish(std::chrono::milliseconds patience);

    [[nodiscard]] State state() const { return state_; }
    /// Sources that the server has refused since the last call, with its reasons.
    [[nodiscard]] std::vector<Refused> takeRefused() { return std::exchange(refused_, {}); }
    /// What the last server that answered calls itself.
    [[nodiscard]] const std::string& server() const { return server_; }
    /// Why no server answers, from all holders that were asked.
    [[nodiscard]] const std::string& problem() const { return problem_; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Waiting {
        LiveHeader header;
        std::vector<std::byte> payload;
    };
    void startNext();
    void takeAnswers();
    void lose(const std::string& reason);
    void flush();
    void reap();

    std::vector<std::string> holders_;
    std::size_t asked_ = 0;  ///< the next holder
    State state_ = State::kDown;
    tqcommon::Descriptor socket_;
    std::vector<pid_t> processes_;  ///< not yet waited for
    LiveReceiver receiver_;
    std::deque<Waiting> waiting_;
    std::size_t waitingBytes_ = 0;
    Clock::time_point next_;  ///< when the holders are asked again
    Clock::time_point upSince_;
    std::chrono::milliseconds pause_{0};
    std::vector<Refused> refused_;
    std::string server_;
    std::string problem_;
};

}  // namespace tqrecorder
