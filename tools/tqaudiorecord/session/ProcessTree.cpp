#include "session/ProcessTree.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

#include "common/ProcessStart.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr const char* kProc = "/proc";
/// A program may start processes and threads without end.
constexpr std::size_t kMostMembers = 256;
constexpr std::size_t kMostTasks = 256;

/// Programs of the recorder's own that hold its live sources. The system cuts names.
bool isHolder(pid_t process) {
    std::ifstream file(kProc + ("/" + std::to_string(process)) + "/comm");
    std::string name;
    return std::getline(file, name) && name == "tqaudiorecord-l";
}

/// Of the fields behind the name, the processor time in the program and in the system for it.
std::uint64_t ticksUsed(const std::string& fields) {
    constexpr int kBefore = 11;
    std::istringstream stream(fields);
    std::string skipped;
    for (int i = 0; i < kBefore; ++i) {
        stream >> skipped;
    }
    std::uint64_t user = 0;
    std::uint64_t system = 0;
    stream >> user >> system;
    return user + system;
}

/// Nothing for one that has ended.
std::optional<ProcessTree::Member> memberOf(pid_t process) {
    std::ifstream file(kProc + ("/" + std::to_string(process)) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t begin = line.find('(');
    const std::size_t end = line.rfind(')');
    if (begin == std::string::npos || end == std::string::npos || end + 2 >= line.size() ||
        line[end + 2] == 'Z' || line[end + 2] == 'X') {
        return std::nullopt;
    }
    const auto ticks = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const std::uint64_t up = static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                             static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
    const std::uint64_t born = tqcommon::processStart(process) * 1000 / ticks;
    const char state = line[end + 2];
    return ProcessTree::Member{process, line.substr(begin + 1, end - begin - 1),
                               milliseconds(up > born ? up - born : 0),
                               ticksUsed(line.substr(end + 2)), state == 'D'};
}

}  // namespace

std::vector<pid_t> childrenOf(const std::string& proc, pid_t process) {
    std::vector<pid_t> children;
    std::error_code failure;
    std::size_t tasks = 0;
    for (fs::directory_iterator each(proc + "/" + std::to_string(process) + "/task", failure), end;
         !failure && each != end && tasks < kMostTasks; each.increment(failure), ++tasks) {
        std::ifstream file(each->path() / "children");
        for (pid_t child = 0; children.size() < kMostMembers && file >> child;) {
            children.push_back(child);
        }
    }
    return children;
}

ProcessTree::ProcessTree() {
    for (const pid_t child : childrenOf(kProc, getpid())) {
        others_.insert(child);
    }
}

ProcessTree::~ProcessTree() {
    if (hasAdopted_) {
        prctl(PR_SET_CHILD_SUBREAPER, before_);
    }
}

void ProcessTree::adopt() {
    prctl(PR_GET_CHILD_SUBREAPER, &before_);
    hasAdopted_ = prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
}

void ProcessTree::reap(pid_t command) const {
    for (const pid_t child : roots()) {
        if (child != command) {
            (void)waitpid(child, nullptr, WNOHANG);
        }
    }
}

std::vector<pid_t> ProcessTree::roots() const {
    std::vector<pid_t> list = childrenOf(kProc, getpid());
    std::erase_if(list, [this](pid_t child) { return others_.contains(child) || isHolder(child); });
    return list;
}

std::vector<ProcessTree::Member> ProcessTree::members() const {
    std::vector<Member> list;
    std::set<pid_t> done;
    const std::vector<pid_t> first = roots();
    std::deque<pid_t> rest(first.begin(), first.end());
    while (!rest.empty() && done.size() < kMostMembers) {
        const pid_t process = rest.front();
        rest.pop_front();
        if (!done.insert(process).second) {
            continue;
        }
        if (auto member = memberOf(process)) {
            list.push_back(std::move(*member));
        }
        const std::vector<pid_t> children = childrenOf(kProc, process);
        rest.insert(rest.end(), children.begin(), children.end());
    }
    return list;
}

}  // namespace tqrecorder
