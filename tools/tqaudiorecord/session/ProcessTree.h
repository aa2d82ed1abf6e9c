#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace tqrecorder {

/// The children of a process, as a folder like /proc tells them.
[[nodiscard]] std::vector<pid_t> childrenOf(const std::string& proc, pid_t process);

/// The processes below this one that a command brought: those that it has started, and what those
/// have started, also where the parents have gone since. [one host thread at a time]
class ProcessTree {
  public:
    /// A process that runs.
    struct Member {
        pid_t pid = 0;
        std::string name;
        std::chrono::milliseconds age{0};
        std::uint64_t ticks = 0;    ///< of processor time used, sysconf(_SC_CLK_TCK) a second
        bool waitsForDisk = false;  ///< at the moment
    };

    /// Whose children there are already belong to somebody else.
    ProcessTree();
    ~ProcessTree();
    ProcessTree(const ProcessTree&) = delete;
    ProcessTree& operator=(const ProcessTree&) = delete;

    /// From now on, as long as this lives, orphans below this process become its own children. Call
    /// it before the command is started.
    void adopt();
    /// Lets those go that have ended, but for `command`, whose exit code somebody else waits for.
    void reap(pid_t command) const;
    /// Direct children, the command and orphans; none of the recorder's own programs.
    [[nodiscard]] std::vector<pid_t> roots() const;
    /// Costs some files for each.
    [[nodiscard]] std::vector<Member> members() const;

  private:
    std::set<pid_t> others_;
    bool hasAdopted_ = false;
    int before_ = 0;  ///< whether orphans came to this process before
};

}  // namespace tqrecorder
