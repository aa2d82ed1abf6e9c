#include "HostRunner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>

std::string HostRun::operator[](const std::string& name) const {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(name + "=", 0) == 0) {
            return line.substr(name.size() + 1);
        }
    }
    return "(not said)";
}

HostRun runHost(const std::vector<std::string>& command,
                const std::map<std::string, std::string>& variables) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return {};
    }
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        // A preloaded library comes before the sanitizer's run-time, which copes but has to be
        // told that this is meant.
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        for (const auto& [name, value] : variables) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    HostRun run;
    std::array<char, 4096> part{};
    for (ssize_t length = 0; (length = read(ends[0], part.data(), part.size())) > 0;) {
        run.text.append(part.data(), static_cast<std::size_t>(length));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}
