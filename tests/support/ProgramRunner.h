#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Programs under test, started as users start them.

namespace tqtest {

/// Longer than any healthy run takes, on a busy machine and under a sanitizer too.
inline constexpr std::chrono::seconds kBound{100};

/// Whether `condition` comes true within kBound; looks again every few milliseconds.
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{5});
    }
    return true;
}

/// A terminal window without a screen.
class Terminal {
  public:
    Terminal(unsigned short rows, unsigned short columns);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// The program's end.
    [[nodiscard]] int programEnd() const { return program_; }
    /// False when the keys did not all go through.
    [[nodiscard]] bool type(std::string_view keys) const;
    /// What programs write until the last of them has gone. Call it once, when they are started.
    [[nodiscard]] std::string readToEnd();

  private:
    int window_ = -1;
    int program_ = -1;
};

struct ProgramSetup {
    std::vector<std::string> arguments;  ///< the program first; looked up in PATH without a slash
    std::map<std::string, std::string> environment = {};  ///< besides the test's own
    int output = -1;  ///< descriptor for its standard output; what goes to -1 is kept
    int errors = -1;  ///< the same for standard error
    /// It runs in that terminal: a key pressed there reaches it as a signal. Standard error goes
    /// there.
    const Terminal* terminal = nullptr;
};

/// How a program ended, and what it wrote where no descriptor was given.
struct ProgramEnd {
    int code = -1;   ///< exit code; -1 when a signal ended it
    int signal = 0;  ///< the signal that did; SIGKILL also when it had to be stopped at its limit
    bool isTimedOut = false;
    std::string output;
    std::string errors;

    /// All that it wrote, for messages.
    [[nodiscard]] std::string text() const { return output + errors; }
    /// The value of a "name=value" line of the output; "(not said)" when there is none.
    [[nodiscard]] std::string operator[](std::string_view name) const;
};

/// A process under way. Killed with its object, if it still runs.
class Program {
  public:
    explicit Program(const ProgramSetup& setup);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] pid_t pid() const { return child_; }
    void signal(int number) const;
    /// Waits for its end; kills it when that does not come within `limit`. Call it once.
    ProgramEnd wait(std::chrono::seconds limit = kBound);
    /// What it wrote so far.
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string errors() const;
    /// Processes that it started and that still run.
    [[nodiscard]] std::vector<pid_t> children() const;

  private:
    pid_t child_ = -1;
    int output_ = -1;
    int errors_ = -1;
};

/// Runs a program to its end.
ProgramEnd runProgram(const ProgramSetup& setup, std::chrono::seconds limit = kBound);

/// Whether that process is there and no zombie.
[[nodiscard]] bool isAlive(pid_t process);

}  // namespace tqtest
