#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "session/ProcessTree.h"

namespace tqrecorder {

/// Tells processes that may play yet from those that never will, once COMMAND and all that played
/// have ended: the young ones, and of those that have a library for sound the ones that work, as
/// games do while they load. Who waits for something is no game that loads.
/// [one host thread at a time]
class LoadingWatch {
  public:
    using Clock = std::chrono::steady_clock;
    /// A process that plays at all has begun by then, unless it still works.
    static constexpr std::chrono::seconds kYoung{20};
    /// Whatever they do, nobody is waited for longer.
    static constexpr std::chrono::seconds kLongest{300};

    /// Somebody has played since: what is seen from here on counts anew.
    void begin(Clock::time_point now);
    [[nodiscard]] bool hasBegun() const { return began_ != Clock::time_point{}; }
    void forget() { *this = {}; }
    [[nodiscard]] Clock::duration elapsed(Clock::time_point now) const { return now - began_; }

    /// Whether any of them may play yet. Call it several times a second. `mayPlay` says whether a
    /// process has a library for sound; it is asked about those that are not young.
    [[nodiscard]] bool isAnyLoading(Clock::time_point now,
                                    const std::vector<ProcessTree::Member>& members,
                                    const std::function<bool(pid_t)>& mayPlay);

  private:
    /// What a process has done lately.
    struct Work {
        std::uint64_t ticks = 0;  ///< at the window's begin
        Clock::time_point window{};
        Clock::time_point last{};  ///< when it was seen working
    };
    [[nodiscard]] bool isWorking(Clock::time_point now, const ProcessTree::Member& member);

    Clock::time_point began_{};
    std::map<pid_t, Work> works_;
};

}  // namespace tqrecorder
