#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/picture/TestWave.h"

namespace tqtest {

struct Outcome {
    int code = -1;  ///< -1 when a signal killed it
    std::string output;
    std::string errors;
};

inline std::string contentOf(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// Runs a program to its end. With a `signal`, sends it as soon as the program has printed `cue`,
/// after ten seconds at the latest.
inline Outcome runProgram(const tqpicture::test::TestFolder& folder, const char* program,
                          const std::vector<std::string>& arguments,
                          const std::vector<std::pair<std::string, std::string>>& environment,
                          int signal = 0, const std::string& cue = "") {
    const std::string out = folder.file("stdout.txt");
    const std::string errors = folder.file("stderr.txt");
    std::ofstream(out).close();
    const pid_t child = fork();
    if (child == 0) {
        for (const auto& [name, value] : environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        std::vector<char*> list{const_cast<char*>(program)};
        for (const std::string& argument : arguments) {
            list.push_back(const_cast<char*>(argument.c_str()));
        }
        list.push_back(nullptr);
        if (std::freopen(out.c_str(), "w", stdout) == nullptr ||
            std::freopen(errors.c_str(), "w", stderr) == nullptr) {
            _exit(126);
        }
        execv(program, list.data());
        _exit(127);
    }
    if (signal != 0) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
        while (contentOf(out).find(cue) == std::string::npos &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds{2});
        }
        kill(child, signal);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(out), contentOf(errors)};
}

}  // namespace tqtest
