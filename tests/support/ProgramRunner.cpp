#include "ProgramRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace tqtest {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// Memory that a program writes to as to a file: unlike a pipe it is never full, and a grandchild
/// that keeps it open holds nobody up.
int makeCapture() {
    const int descriptor = memfd_create("captured", MFD_CLOEXEC);
    if (descriptor < 0) {
        fail("memfd_create");
    }
    return descriptor;
}

std::string capturedBy(int descriptor) {
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = pread(descriptor, piece.data(), piece.size(),
                                       static_cast<off_t>(text.size()))) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return text;
}

/// The test's environment, changed as the setup asks, each as "name=value".
std::vector<std::string> environmentOf(const ProgramSetup& setup) {
    std::map<std::string, std::string> variables;
    for (char** each = environ; *each != nullptr; ++each) {
        const std::string_view line = *each;
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos) {
            variables[std::string(line.substr(0, equals))] = line.substr(equals + 1);
        }
    }
    for (const auto& [name, value] : setup.environment) {
        variables[name] = value;
    }
    // A preloaded library comes before the sanitizer's run-time, which copes but has to be told
    // that this is meant.
    std::string& options = variables["ASAN_OPTIONS"];
    options += (options.empty() ? "" : ":") + std::string("verify_asan_link_order=0");
    std::vector<std::string> lines;
    for (const auto& [name, value] : variables) {
        std::string line = name;
        line += '=';
        line += value;
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

Terminal::Terminal(unsigned short rows, unsigned short columns) {
    const winsize size{rows, columns, 0, 0};
    if (openpty(&window_, &program_, nullptr, nullptr, &size) != 0) {
        fail("openpty");
    }
    fcntl(window_, F_SETFD, FD_CLOEXEC);
    fcntl(program_, F_SETFD, FD_CLOEXEC);
}

Terminal::~Terminal() {
    close(window_);
    if (program_ >= 0) {
        close(program_);
    }
}

bool Terminal::type(std::string_view keys) const {
    return write(window_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
}

std::string Terminal::readToEnd() {
    // The end comes when nobody has the other side open any more.
    close(program_);
    program_ = -1;
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(window_, piece.data(), piece.size())) > 0;) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return text;
}

std::string ProgramEnd::operator[](std::string_view name) const {
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == '=') {
            return line.substr(name.size() + 1);
        }
    }
    return "(not said)";
}

Program::Program(const ProgramSetup& setup) : output_(makeCapture()), errors_(makeCapture()) {
    // All memory is taken before fork(): another thread may hold the allocator's lock at that time.
    const std::vector<std::string> variables = environmentOf(setup);
    const std::vector<char*> environment = pointersTo(variables);
    const std::vector<char*> arguments = pointersTo(setup.arguments);
    const int terminal = setup.terminal != nullptr ? setup.terminal->programEnd() : -1;
    const int output = setup.output >= 0 ? setup.output : output_;
    int errors = setup.errors >= 0 ? setup.errors : errors_;
    errors = terminal >= 0 ? terminal : errors;
    child_ = fork();
    if (child_ < 0) {
        fail("fork");
    }
    if (child_ > 0) {
        return;
    }
    const bool isInTerminal = terminal < 0 || (setsid() >= 0 && ioctl(terminal, TIOCSCTTY, 0) == 0);
    if (isInTerminal && dup2(output, STDOUT_FILENO) >= 0 && dup2(errors, STDERR_FILENO) >= 0) {
        execvpe(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    _exit(126);
}

Program::~Program() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    close(output_);
    close(errors_);
}

void Program::signal(int number) const {
    kill(child_, number);
}

ProgramEnd Program::wait(std::chrono::seconds limit) {
    ProgramEnd end;
    // The C library's own pidfd_open() cannot be linked from C++ in its version 2.36.
    pollfd process{static_cast<int>(syscall(SYS_pidfd_open, child_, 0)), POLLIN, 0};
    if (process.fd < 0) {
        fail("pidfd_open");
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (process.revents == 0 && !end.isTimedOut) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        end.isTimedOut = left.count() <= 0;
        poll(&process, 1, end.isTimedOut ? 0 : static_cast<int>(left.count()));
    }
    close(process.fd);
    if (end.isTimedOut) {
        kill(child_, SIGKILL);
    }
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = -1;
    if (WIFEXITED(status)) {
        end.code = WEXITSTATUS(status);
    } else {
        end.signal = WTERMSIG(status);
    }
    end.output = output();
    end.errors = errors();
    return end;
}

std::string Program::output() const {
    return capturedBy(output_);
}

std::string Program::errors() const {
    return capturedBy(errors_);
}

std::vector<pid_t> Program::children() const {
    const std::string process = std::to_string(child_);
    std::ifstream list("/proc/" + process + "/task/" + process + "/children");
    std::vector<pid_t> all;
    for (pid_t child = 0; list >> child;) {
        all.push_back(child);
    }
    return all;
}

ProgramEnd runProgram(const ProgramSetup& setup, std::chrono::seconds limit) {
    return Program(setup).wait(limit);
}

bool isAlive(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string number;
    std::string name;
    std::string state;
    return (file >> number >> name >> state) && state != "Z" && state != "X";
}

}  // namespace tqtest
