#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/Records.h"

namespace tqrecorder {

/// What can be seen of COMMAND and the processes that it starts from outside, through /proc: also
/// of those that the recorder does not get into. Of sandboxes and of programs with raised
/// privileges the system shows little, which tells enough. [one host thread at a time]
class HostLook {
  public:
    explicit HostLook(std::string proc = "/proc") : proc_(std::move(proc)) {}

    /// Looks at the process and all below it. Costs some files for each: not for every turn.
    void lookAt(pid_t root);
    /// This one is recorded, with the program that it runs now.
    void setTapped(pid_t process);
    /// In the order of first sight; at most kMost.
    [[nodiscard]] std::vector<SeenProcess> processes() const;

    static constexpr std::size_t kMost = 64;

  private:
    void lookAtOne(pid_t process);
    void lookAtLibraries(SeenProcess& seen) const;
    void lookAtDevices(SeenProcess& seen) const;
    [[nodiscard]] bool isSandboxed(pid_t process) const;
    [[nodiscard]] bool isElsewhere(pid_t process, const char* space) const;
    [[nodiscard]] std::string folderOf(pid_t process) const;

    std::string proc_;
    std::vector<SeenProcess> seen_;
    std::set<std::pair<pid_t, std::string>> tapped_;  ///< with the program that they ran then
};

}  // namespace tqrecorder
