#include "session/LoadingWatch.h"

#include <unistd.h>

#include <algorithm>

#include "core/Services.h"

namespace tqrecorder {
namespace {

/// Work is measured over so long.
constexpr std::chrono::seconds kWindow{3};
/// Of one processor. On a machine with ten times as much to do a game that loads has that much.
constexpr double kLeastWork = 0.02;
/// Who has not worked for so long loads no more. Games wait for the network, too.
constexpr std::chrono::seconds kPatience{10};

bool hasWorked(std::uint64_t ticks, LoadingWatch::Clock::duration within) {
    const double worked = static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    return worked >= kLeastWork * std::chrono::duration<double>(within).count();
}

}  // namespace

void LoadingWatch::begin(Clock::time_point now) {
    if (!hasBegun()) {
        began_ = now;
    }
}

bool LoadingWatch::isWorking(Clock::time_point now, const ProcessTree::Member& member) {
    const auto [entry, isNew] = works_.try_emplace(member.pid, Work{member.ticks, now, {}});
    Work& work = entry->second;
    if (isNew && hasWorked(member.ticks, member.age)) {
        // By its whole life; what it does now shows within a window.
        work.last = member.age < kYoung ? now : now - kPatience + 2 * kWindow;
    }
    if (member.waitsForDisk) {
        work.last = now;
    }
    if (now - work.window >= kWindow) {
        const std::uint64_t ticks = member.ticks - std::min(member.ticks, work.ticks);
        work.last = hasWorked(ticks, now - work.window) ? now : work.last;
        work.ticks = member.ticks;
        work.window = now;
    }
    return now - work.last < kPatience;
}

bool LoadingWatch::isAnyLoading(Clock::time_point now,
                                const std::vector<ProcessTree::Member>& members,
                                const std::function<bool(pid_t)>& mayPlay) {
    bool isAny = false;
    for (const ProcessTree::Member& member : members) {
        if (isService(member.name)) {
            continue;
        }
        // Each is looked at, so that what it does is known when it is young no more.
        const bool works = isWorking(now, member);
        const bool isYoung = member.age < kYoung && elapsed(now) <= kYoung;
        isAny = isAny || isYoung || (works && mayPlay(member.pid));
    }
    return isAny && elapsed(now) <= kLongest;
}

}  // namespace tqrecorder
