#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "support/ProgramRunner.h"
#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {

using testing::HasSubstr;
using testing::Not;

using tqtest::eventually;
using tqtest::Program;
using tqtest::ProgramEnd;
using tqtest::ProgramSetup;

/// Runs the real recorder on a program that lies to it.
class HostileHostTest : public testing::Test {
  protected:
    [[nodiscard]] ProgramSetup setup(std::vector<std::string> options, const std::string& way,
                                     const std::string& argument = "0") const {
        ProgramSetup setup;
        setup.arguments = std::move(options);
        setup.arguments.insert(setup.arguments.begin(), TQ_RECORDER);
        setup.arguments.insert(setup.arguments.end(),
                               {"--no-arm", "--", TQ_HOSTILE_HOST, way, argument});
        setup.environment = {{"XDG_CACHE_HOME", folder_.file("cache")},
                             {"XDG_MUSIC_DIR", folder_.file("music")}};
        return setup;
    }
    [[nodiscard]] ProgramEnd run(std::vector<std::string> options, const std::string& way,
                                 const std::string& argument = "0") const {
        return tqtest::runProgram(setup(std::move(options), way, argument));
    }
    [[nodiscard]] std::string output() const { return folder_.file("out.wav"); }

    TemporaryFolder folder_;
};

/// The most memory of its own and of files that a process has held so far, in kilobytes.
inline long mostMemoryOf(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

/// Sizes of all files below a folder together.
inline std::uintmax_t bytesIn(const std::filesystem::path& folder) {
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        bytes += entry.is_regular_file() ? entry.file_size() : 0;
    }
    return bytes;
}

}  // namespace tqrecorder::test
