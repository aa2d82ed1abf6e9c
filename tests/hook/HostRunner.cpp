#include "HostRunner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>

std::string hostProgram(const std::string& name) {
    return std::string(HOOK_HOSTS) + "/hook_" + name;
}

std::string hostLibrary(const std::string& name) {
    return std::string(HOOK_HOSTS) + "/libhook_" + name + ".so";
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
        setenv("LD_LIBRARY_PATH", HOOK_HOSTS, 1);
        // A preloaded library comes before the sanitizer's run-time; the run-time copes, it only
        // has to be told that this is meant.
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
    std::istringstream lines(run.text);
    for (std::string line; std::getline(lines, line);) {
        if (const auto equals = line.find('='); equals != std::string::npos) {
            run.values[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return run;
}
