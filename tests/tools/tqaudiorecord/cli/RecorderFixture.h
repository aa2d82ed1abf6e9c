#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "examples/game_host/GameSounds.h"
#include "support/ProgramRunner.h"
#include "tools/tqaudiorecord/output/Sound.h"

namespace tqrecorder::test {

using testing::HasSubstr;
using testing::Not;

using tqtest::eventually;
using tqtest::isAlive;
using tqtest::Program;
using tqtest::ProgramEnd;
using tqtest::ProgramSetup;
using tqtest::Terminal;

/// Runs the real recorder on the real example host, without a sound server.
class RecorderTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(tqtest::makeGameSounds(sounds_)); }

    [[nodiscard]] ProgramSetup setup(std::vector<std::string> options,
                                     const std::vector<std::string>& command) const {
        ProgramSetup setup;
        setup.arguments = std::move(options);
        setup.arguments.insert(setup.arguments.begin(), TQ_RECORDER);
        setup.arguments.insert(setup.arguments.end(), command.begin(), command.end());
        setup.environment = {{"TQ_AUDIO_DEVICE", "null"},
                             {"XDG_CACHE_HOME", folder_.file("cache")},
                             {"XDG_MUSIC_DIR", folder_.file("music")}};
        return setup;
    }
    [[nodiscard]] std::vector<std::string> game(const std::string& seconds) const {
        return {TQ_GAME_HOST, "--quiet", "--seconds", seconds, "--sounds", sounds_.file("")};
    }
    [[nodiscard]] ProgramEnd run(std::vector<std::string> options,
                                 const std::vector<std::string>& command) const {
        return tqtest::runProgram(setup(std::move(options), command));
    }
    /// Whether the music can be heard in a recording, and for how long.
    static void expectMusic(const std::string& path, int rate, double shortest) {
        const RecordedFile recorded(path);
        ASSERT_TRUE(recorded.opened) << path;
        EXPECT_EQ(recorded.info.samplerate, rate);
        ASSERT_GT(static_cast<double>(recorded.frames()) / rate, shortest) << path;
        EXPECT_GT(upperQuarter(recorded, 441, shortest), 0.1) << path;
        EXPECT_LT(recorded.amplitude(3150, 0.3, shortest), 0.02) << path;
    }
    /// Amplitude in pieces of 50 ms, of which three quarters have no more: a busy machine makes
    /// holes between them.
    template <typename Recorded>
    static double upperQuarter(const Recorded& recorded, double hertz, double end) {
        constexpr double kPieceSeconds = 0.05;
        std::vector<double> all;
        for (double at = 0.3; at + kPieceSeconds < end; at += kPieceSeconds) {
            all.push_back(recorded.amplitude(hertz, at, at + kPieceSeconds));
        }
        std::sort(all.begin(), all.end());
        return all.empty() ? 0 : all[all.size() * 3 / 4];
    }
    /// Runs a shell command and gives what it prints; empty where the tool is missing.
    static std::string shell(const std::string& command) {
        return tqtest::runProgram({.arguments = {"sh", "-c", command}}).text();
    }
    static bool hasTool(const std::string& name) { return !shell("command -v " + name).empty(); }

    TemporaryFolder folder_;
    TemporaryFolder sounds_;
};

}  // namespace tqrecorder::test
