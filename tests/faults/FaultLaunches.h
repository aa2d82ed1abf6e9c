#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

/// Launches of one program with the library, as users start them, with a caches folder of their
/// own.
class FaultLaunches : public testing::Test {
  protected:
    /// Both programs have this name, so they share one guard.
    static constexpr const char* kName = "player";

    [[nodiscard]] tqtest::ProgramSetup hooked(const std::string& what) const {
        return {.arguments = {TQ_FAULT_PLAYER, what},
                .environment = {{"XDG_CACHE_HOME", caches.string()},
                                {"TQ_AUDIO_DEVICE", "manual"},
                                {"LD_PRELOAD", TQ_CAPTURE_LIBRARY}}};
    }
    [[nodiscard]] tqtest::ProgramEnd launch(const std::string& what) const {
        return tqtest::runProgram(hooked(what));
    }
    [[nodiscard]] tqtest::ProgramEnd arming(const std::string& what = "on") const {
        return tqtest::runProgram({.arguments = {TQ_FAULT_ARM, what},
                                   .environment = {{"XDG_CACHE_HOME", caches.string()}}});
    }
    void arm() const {
        const tqtest::ProgramEnd run = arming();
        ASSERT_EQ(run["result"], "0") << run.text();
        ASSERT_EQ(run["enabled"], "1") << run.text();
    }
    static void expectPlays(const tqtest::ProgramEnd& run, const std::string& hooks) {
        EXPECT_EQ(run.code, 0) << "signal " << run.signal << "\n" << run.text();
        EXPECT_EQ(run["hooks"], hooks) << run.text();
        EXPECT_EQ(run["played"], "10") << run.text();
    }
    static std::uint32_t word(const std::filesystem::path& file, std::size_t offset) {
        std::ifstream in(file, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(offset));
        std::uint32_t value = ~0U;
        in.read(reinterpret_cast<char*>(&value), sizeof(value));
        return value;
    }
    [[nodiscard]] std::uint32_t retries() const { return word(config, 4); }

    TemporaryFolder folder;
    const std::filesystem::path& caches = folder.path();
    const std::filesystem::path flags = caches / kName / "korva_audio_utils";
    const std::filesystem::path config = flags / "korva_audio_hook_config.flag";
    const std::filesystem::path count = flags / "korva_audio_hook_func_count.flag";
    const std::filesystem::path records = flags / "korva_audio_hook_processes.flag";
};
