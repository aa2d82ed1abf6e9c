#include "session/HostProgram.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <set>
#include <string_view>
#include <vector>

#include "core/SoundLibraries.h"
#include "session/ElfFile.h"

namespace tqrecorder {
namespace {

using Problem = HostProgram::Problem;

constexpr std::size_t kMostLibraries = 500;

bool isFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::vector<std::string> foldersOf(const char* list) {
    std::vector<std::string> folders;
    const std::string text = list == nullptr ? "" : list;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(':', begin), text.size());
        folders.push_back(end == begin ? "." : text.substr(begin, end - begin));
        begin = end + 1;
    }
    return folders;
}

/// As execvp(): the first that may be executed, else the first that is there.
std::string lookUp(const std::string& command) {
    if (command.find('/') != std::string::npos) {
        return command;
    }
    const char* const path = std::getenv("PATH");
    std::string found;
    for (const std::string& folder : foldersOf(path == nullptr ? "/bin:/usr/bin" : path)) {
        std::string candidate = folder;
        candidate += '/';
        candidate += command;
        if (isFile(candidate)) {
            if (access(candidate.c_str(), X_OK) == 0) {
                return candidate;
            }
            found = found.empty() ? candidate : found;
        }
    }
    return found;
}

/// The program behind "#!"; empty for other files.
std::string interpreterOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line(256, '\0');
    file.read(line.data(), static_cast<std::streamsize>(line.size()));
    line.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    line.erase(std::min(line.find('\n'), line.size()));
    if (!line.starts_with("#!")) {
        return {};
    }
    const std::size_t begin = line.find_first_not_of(" \t", 2);
    if (begin == std::string::npos) {
        return {};
    }
    return line.substr(begin, line.find_first_of(" \t", begin) - begin);
}

/// Whether the file, or a library that it needs, is linked against a library for sound. Looks only
/// where the files themselves say, without running anything.
bool needsSound(const ElfFile& program) {
    const std::vector<std::string> fixed = [] {
        std::vector<std::string> folders;
        if (const char* const path = std::getenv("LD_LIBRARY_PATH")) {
            folders = foldersOf(path);
        }
        for (const char* folder : {"/lib", "/usr/lib", "/lib64", "/usr/lib64", "/usr/local/lib",
                                   "/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu",
                                   "/lib/aarch64-linux-gnu", "/usr/lib/aarch64-linux-gnu"}) {
            folders.emplace_back(folder);
        }
        return folders;
    }();
    std::set<std::string> seen;
    std::deque<ElfFile> rest{program};
    while (!rest.empty() && seen.size() < kMostLibraries) {
        const ElfFile elf = std::move(rest.front());
        rest.pop_front();
        for (const std::string& name : elf.needed) {
            if (isSoundLibrary(name)) {
                return true;
            }
            if (seen.size() == kMostLibraries || !seen.insert(name).second) {
                continue;
            }
            std::vector<std::string> folders = elf.searchPath;
            folders.insert(folders.end(), fixed.begin(), fixed.end());
            const auto folder =
                std::find_if(folders.begin(), folders.end(),
                             [&name](const std::string& one) { return isFile(one + "/" + name); });
            if (folder != folders.end()) {
                if (auto library = readElfFile(*folder + "/" + name)) {
                    library->searchPath.insert(library->searchPath.end(), elf.searchPath.begin(),
                                               elf.searchPath.end());
                    library->searchPath.resize(
                        std::min(library->searchPath.size(), ElfFile::kMostFolders));
                    rest.push_back(std::move(*library));
                }
            }
        }
    }
    return false;
}

/// Whether it is the loader that this very program was started by: it has no interpreter either,
/// and loads what it is told to into the program that is its argument.
bool isLoader(const std::string& path) {
    const auto self = readElfFile("/proc/self/exe");
    std::error_code failure;
    return self && !self->isStatic && std::filesystem::equivalent(path, self->interpreter, failure);
}

Problem problemOfElf(const std::string& path, const ElfFile& elf) {
    if (!elf.isOurMachine) {
        return Problem::kOtherMachine;
    }
    if (elf.isStatic && isLoader(path)) {
        return Problem::kNone;
    }
    if (elf.isStatic) {
        return Problem::kStatic;
    }
    if (!isFile(elf.interpreter)) {
        return Problem::kNoInterpreter;
    }
    return needsSound(elf) ? Problem::kNone : Problem::kNoSound;
}

}  // namespace

bool raisesPrivileges(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return false;
    }
    return ((status.st_mode & S_ISUID) != 0 && status.st_uid != getuid()) ||
           ((status.st_mode & S_ISGID) != 0 && status.st_gid != getgid()) ||
           (geteuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0);
}

HostProgram findHostProgram(const std::string& command) {
    HostProgram program;
    const std::string path = lookUp(command);
    struct stat status {};
    if (path.empty() || stat(path.c_str(), &status) != 0) {
        program.problem = Problem::kNotFound;
        return program;
    }
    program.path = path;
    if (!S_ISREG(status.st_mode) || access(path.c_str(), X_OK) != 0) {
        program.problem = Problem::kNotExecutable;
        return program;
    }
    if (const auto elf = readElfFile(path)) {
        program.problem = raisesPrivileges(path) ? Problem::kPrivileged : problemOfElf(path, *elf);
        return program;
    }
    // execvp() gives a file that is neither an ELF file nor begins with "#!" to the shell.
    program.interpreter = interpreterOf(path);
    if (program.interpreter.empty()) {
        program.interpreter = "/bin/sh";
    }
    if (!isFile(program.interpreter)) {
        program.problem = Problem::kNoInterpreter;
    }
    return program;
}

std::string HostProgram::text(const std::string& command) const {
    switch (problem) {
        case Problem::kNone:
            return {};
        case Problem::kNotFound:
            return command + ": not found";
        case Problem::kNotExecutable:
            return command + ": cannot be executed";
        case Problem::kNoInterpreter:
            return command + ": its interpreter is missing";
        case Problem::kOtherMachine:
            return command + ": is for another kind of machine than the recorder and cannot be " +
                   "recorded";
        case Problem::kStatic:
            return command + ": is statically linked and cannot be recorded";
        case Problem::kPrivileged:
            return command + ": runs with raised privileges and cannot be recorded";
        case Problem::kNoSound:
            return command + ": is linked against no library for sound";
    }
    return {};
}

}  // namespace tqrecorder
