// A launcher: starts a program in the background and ends at once.
//
//   launcher_host HOW SECONDS CODE PROGRAM ARG...
//
// HOW is "child" (the program is a child), "session" (in a session of its own) or "daemon" (a child
// of a child that has gone, in a session of its own). The program begins after SECONDS. CODE is the
// launcher's exit code.

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string_view>
#include <thread>

int main(int count, char** arguments) {
    if (count < 5) {
        return 2;
    }
    const std::string_view how = arguments[1];
    const std::chrono::duration<double> pause(std::atof(arguments[2]));
    const pid_t child = fork();
    if (child != 0) {
        if (how == "daemon") {
            waitpid(child, nullptr, 0);
        }
        _exit(child < 0 ? 2 : std::atoi(arguments[3]));
    }
    if (how != "child") {
        setsid();
    }
    if (how == "daemon" && fork() != 0) {
        _exit(0);
    }
    std::this_thread::sleep_for(pause);
    execv(arguments[4], arguments + 4);
    _exit(127);
}
