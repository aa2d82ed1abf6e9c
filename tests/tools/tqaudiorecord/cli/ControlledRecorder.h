#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "RecorderFixture.h"

namespace tqrecorder::test {

/// Recorders that `ctl` reaches, and those of other tests not.
class ControlledRecorderTest : public RecorderTest {
  protected:
    [[nodiscard]] ProgramSetup reachable(ProgramSetup setup) const {
        setup.environment["XDG_RUNTIME_DIR"] = folder_.path();
        return setup;
    }
    [[nodiscard]] ProgramEnd ctl(std::vector<std::string> words) const {
        words.insert(words.begin(), "ctl");
        return tqtest::runProgram(reachable(setup(std::move(words), {})));
    }
    [[nodiscard]] bool hasPlayed(double seconds, const std::vector<std::string>& which = {}) const {
        std::vector<std::string> words = which;
        words.insert(words.end(), {"status", "--json"});
        const ProgramEnd end = ctl(words);
        if (end.code != 0) {
            return false;
        }
        const auto status = nlohmann::json::parse(end.output);
        return !status["sources"].empty() && status["sources"][0]["seconds"] > seconds;
    }
    const std::string path_ = folder_.file("out.wav");
};

}  // namespace tqrecorder::test
