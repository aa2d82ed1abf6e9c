#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "inject/HostImage.h"
#include "ipc/TapSettings.h"

// Starting the program once more in the same process.

namespace tqrecorder {
namespace {

constexpr const char* kSelf = "/proc/self/exe";

bool isThisProgram(const std::string& path) {
    struct stat self {};
    struct stat other {};
    return !path.empty() && stat(kSelf, &self) == 0 && stat(path.c_str(), &other) == 0 &&
           self.st_dev == other.st_dev && self.st_ino == other.st_ino;
}

/// A path by which the program can be executed, best the one by which it was: programs ask for it,
/// and the system calls the process by it.
std::string pathOfProgram() {
    const auto* const executed = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (executed != nullptr && isThisProgram(executed)) {
        return executed;
    }
    std::error_code failure;
    const std::string path = std::filesystem::read_symlink(kSelf, failure).string();
    // It may have been replaced or deleted since.
    return isThisProgram(path) ? path : kSelf;
}

std::vector<std::string> loaderArguments() {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::vector<std::string> list;
    for (std::string argument; std::getline(file, argument, '\0');) {
        list.push_back(argument);
    }
    return list;
}

}  // namespace

void restartProgram(char** arguments) {
    std::array<char, 16> name{};
    prctl(PR_GET_NAME, name.data());
    setenv(kRestartVariable, (std::to_string(getpid()) + ":" + name.data()).c_str(), 1);
    const std::string path = pathOfProgram();
    if (getauxval(AT_BASE) == 0) {
        // Started as the loader's argument: the file that runs is the loader, which needs its own
        // arguments again.
        std::vector<std::string> list = loaderArguments();
        std::vector<char*> pointers;
        for (std::string& argument : list) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        execve(path.c_str(), pointers.data(), environ);
    } else {
        execve(path.c_str(), arguments, environ);
    }
    unsetenv(kRestartVariable);
}

bool isRestarted() {
    const char* const value = std::getenv(kRestartVariable);
    const std::string mark = value == nullptr ? "" : value;
    unsetenv(kRestartVariable);
    const std::size_t colon = mark.find(':');
    if (colon == std::string::npos || mark.substr(0, colon) != std::to_string(getpid())) {
        return false;
    }
    // A script's interpreter was called by the script until then.
    prctl(PR_SET_NAME, mark.c_str() + colon + 1);
    return true;
}

}  // namespace tqrecorder
