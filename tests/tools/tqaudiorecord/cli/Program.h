#pragma once

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/tqaudiorecord/output/Sound.h"

// The real program, started as a user starts it.

namespace tqrecorder::test {

/// Whether `condition` came true; looks again and again for half a minute.
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{30};
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{5});
    }
    return true;
}

/// A process under way. Killed with its object, if it still runs.
class Program {
  public:
    struct Setup {
        std::vector<std::string> arguments;  ///< the program first
        std::string output;  ///< file for standard output; ignored with a descriptor
        std::string errors;  ///< file for standard error; ignored with a descriptor
        int outputDescriptor = -1;
        int errorDescriptor = -1;
        bool isItsTerminal = false;  ///< errorDescriptor is the terminal that it runs in
        std::vector<std::pair<std::string, std::string>> environment;
    };

    explicit Program(const Setup& setup) : child_(fork()) {
        if (child_ != 0) {
            return;
        }
        for (const auto& [name, value] : setup.environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        if (setup.isItsTerminal &&
            (setsid() < 0 || ioctl(setup.errorDescriptor, TIOCSCTTY, 0) < 0)) {
            _exit(126);
        }
        const auto direct = [](int descriptor, const std::string& path, int target) {
            const int file = descriptor >= 0 ? descriptor
                                             : open(path.c_str(),
                                                    O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            if (file < 0 || dup2(file, target) < 0) {
                _exit(126);
            }
        };
        direct(setup.outputDescriptor, setup.output, STDOUT_FILENO);
        direct(setup.errorDescriptor, setup.errors, STDERR_FILENO);
        std::vector<char*> list;
        for (const std::string& argument : setup.arguments) {
            list.push_back(const_cast<char*>(argument.c_str()));
        }
        list.push_back(nullptr);
        execvp(list[0], list.data());
        _exit(127);
    }
    ~Program() {
        if (child_ > 0) {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] pid_t pid() const { return child_; }
    void signal(int number) const { kill(child_, number); }
    /// Its exit code, -1 for a signal, -2 when it does not end within two minutes.
    [[nodiscard]] int wait() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{120};
        int status = 0;
        while (waitpid(child_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                return -2;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds{5});
        }
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// Processes that it started and that still run.
    [[nodiscard]] std::vector<pid_t> children() const {
        std::ifstream list("/proc/" + std::to_string(child_) + "/task/" + std::to_string(child_) +
                           "/children");
        std::vector<pid_t> all;
        for (pid_t child = 0; list >> child;) {
            all.push_back(child);
        }
        return all;
    }

  private:
    pid_t child_;
};

/// Whether that process is there and no zombie.
[[nodiscard]] inline bool isAlive(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string number;
    std::string name;
    std::string state;
    return (file >> number >> name >> state) && state != "Z" && state != "X";
}

}  // namespace tqrecorder::test
