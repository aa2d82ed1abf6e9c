#include "session/HostLook.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "core/SoundLibraries.h"
#include "ipc/Printable.h"
#include "ipc/TapSettings.h"
#include "session/ElfFile.h"
#include "session/HostProgram.h"
#include "session/ProcessTree.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;

/// Of one look; a host may start processes without end.
constexpr std::size_t kMostLookedAt = 256;
constexpr std::size_t kMostDescriptors = 4096;
constexpr std::size_t kMostMappings = 20000;

/// The raw devices that play; the one for control says nothing.
constexpr std::string_view kDevice = "/dev/snd/pcm";

std::string linkOf(const fs::path& path) {
    std::error_code failure;
    return fs::read_symlink(path, failure).string();
}

template <class Visit>
void forEachEntry(const fs::path& folder, std::size_t most, Visit visit) {
    std::error_code failure;
    std::size_t count = 0;
    for (fs::directory_iterator each(folder, failure), end; !failure && each != end && count < most;
         each.increment(failure), ++count) {
        visit(each->path());
    }
}

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

}  // namespace

std::string HostLook::folderOf(pid_t process) const {
    return proc_ + "/" + std::to_string(process);
}

void HostLook::setTapped(pid_t process) {
    tapped_.emplace(process, linkOf(folderOf(process) + "/exe"));
}

void HostLook::lookAt(pid_t root) {
    std::set<pid_t> done;
    std::deque<pid_t> rest{root};
    while (!rest.empty() && done.size() < kMostLookedAt) {
        const pid_t process = rest.front();
        rest.pop_front();
        if (process <= 0 || !done.insert(process).second) {
            continue;
        }
        lookAtOne(process);
        for (const pid_t child : childrenOf(proc_, process)) {
            rest.push_back(child);
        }
    }
}

void HostLook::lookAtOne(pid_t process) {
    const std::string folder = folderOf(process);
    const std::string name = firstLine(folder + "/comm");
    if (name.empty()) {
        return;
    }
    std::error_code failure;
    const std::string program = fs::read_symlink(folder + "/exe", failure).string();
    const bool isHidden = failure == std::errc::permission_denied;
    if (program.empty() && !isHidden) {
        // It has ended, and waits to be asked for its exit code.
        return;
    }
    // A process that execs is another program, and one that ends may leave its number to another.
    auto seen = std::find_if(seen_.begin(), seen_.end(), [&](const SeenProcess& one) {
        return one.pid == process && one.program == program;
    });
    if (seen == seen_.end()) {
        if (seen_.size() == kMost) {
            return;
        }
        seen_.push_back({});
        seen = seen_.end() - 1;
        seen->pid = process;
        seen->program = program;
        // The link leads there also where the path does not, in another root or behind a deletion.
        const auto elf = readElfFile(folder + "/exe");
        seen->isStatic = elf && elf->isStatic;
        seen->isPrivileged = isHidden || raisesPrivileges(folder + "/exe");
    }
    seen->name = printable(name);
    seen->isSandboxed = seen->isSandboxed || isSandboxed(process);
    lookAtLibraries(*seen);
    lookAtDevices(*seen);
}

void HostLook::lookAtLibraries(SeenProcess& seen) const {
    std::ifstream file(folderOf(seen.pid) + "/maps");
    std::string line;
    int copiesOfC = 0;
    for (std::size_t i = 0; i < kMostMappings && std::getline(file, line); ++i) {
        const std::size_t path = line.find('/');
        if (path == std::string::npos) {
            continue;
        }
        const std::string_view name = withoutFolders(std::string_view(line).substr(path));
        if (seen.library.empty() && beginsWithOneOf(name, kSoundLibraries)) {
            seen.library = printable(name);
        }
        seen.isPrepared = seen.isPrepared || name == kTapName;
        // Each namespace has its own, which begins at the file's first byte.
        const bool isBeginning = line.find(" 00000000 ") != std::string::npos;
        copiesOfC += isBeginning && name == "libc.so.6" ? 1 : 0;
    }
    seen.loadsApart = seen.loadsApart || copiesOfC > 1;
}

void HostLook::lookAtDevices(SeenProcess& seen) const {
    forEachEntry(folderOf(seen.pid) + "/fd", kMostDescriptors, [&seen](const fs::path& entry) {
        const std::string target = linkOf(entry);
        if (seen.device.empty() && target.starts_with(kDevice) && target.ends_with('p')) {
            seen.device = printable(target);
        }
    });
}

bool HostLook::isElsewhere(pid_t process, const char* space) const {
    const std::string own = linkOf(proc_ + "/self/ns/" + space);
    const std::string other = linkOf(folderOf(process) + "/ns/" + space);
    return !own.empty() && !other.empty() && own != other;
}

/// Behind a filter of system calls, or where the recorder's socket is not.
bool HostLook::isSandboxed(pid_t process) const {
    std::ifstream file(folderOf(process) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("Seccomp:") && line.ends_with('2')) {
            return true;
        }
    }
    return isElsewhere(process, "net") || isElsewhere(process, "user");
}

std::vector<SeenProcess> HostLook::processes() const {
    std::vector<SeenProcess> list = seen_;
    for (SeenProcess& seen : list) {
        seen.isTapped = tapped_.contains({seen.pid, seen.program});
    }
    return list;
}

}  // namespace tqrecorder
