#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"

// Programs under test, and servers for them, of which nothing is left behind.

namespace tqtest {

using Environment = std::map<std::string, std::string>;

/// The setup with the command under a keeper (keeper.cpp): whatever it starts ends with it, and
/// with the test. `folder` is removed when the test itself dies. The program hears nothing of the
/// session that the test was started from: no screen, no sound server, no bus.
[[nodiscard]] ProgramSetup kept(ProgramSetup setup, const std::filesystem::path& folder);

/// A program that runs as long as its object; SIGTERM first, so that it removes what it made.
class Kept {
  public:
    Kept(const ProgramSetup& setup, const std::filesystem::path& folder);
    ~Kept();
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;

    [[nodiscard]] bool isRunning() const { return isAlive(program_.pid()); }
    /// Waits for its own end.
    ProgramEnd wait();
    /// To the program itself, not to what keeps it.
    void signal(int number) const;
    /// What it wrote so far, for messages.
    [[nodiscard]] std::string text() const { return program_.output() + program_.errors(); }
    /// Ends it and all below it.
    void stop();

  private:
    Program program_;
    bool isOver_ = false;
};

/// Throws, with the name of the package that brings it, when a program is not installed.
void needTool(const std::string& program, const std::string& package);

/// Waits for `condition`; throws with `what` and what the server said when it ended or took too
/// long.
template <typename Condition>
void awaitReady(const Kept& server, const std::string& what, Condition condition) {
    bool isReady = false;
    const bool isDecided = eventually([&] {
        isReady = condition();
        return isReady || !server.isRunning();
    });
    if (!isDecided || !isReady) {
        throw std::runtime_error(what + " did not get ready: " + server.text());
    }
}

}  // namespace tqtest
