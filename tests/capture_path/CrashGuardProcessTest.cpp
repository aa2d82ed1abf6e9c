#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

// Real processes, one launch after the other, with one caches folder: how the library gets into a
// host, what a death inside its hooks costs, and what broken flag files do.

namespace {

namespace fs = std::filesystem;

const std::string kTone = TQ_TONE_HOST;
const std::string kLinkedTone = TQ_LINKED_TONE_HOST;
const std::string kArm = TQ_ARM_GUARD;
const std::string kLibrary = TQ_CAPTURE_LIBRARY;

using HostRun = tqtest::ProgramEnd;

struct Launches : testing::Test {
    TemporaryFolder folder;
    const fs::path& caches = folder.path();
    // The program's own part of the caches.
    const fs::path flags = caches / "tone_host" / "korva_audio_utils";
    const fs::path config = flags / "korva_audio_hook_config.flag";
    const fs::path count = flags / "korva_audio_hook_func_count.flag";

    [[nodiscard]] HostRun launch(const std::vector<std::string>& command,
                                 const std::string& preload = {}) const {
        std::map<std::string, std::string> variables{{"XDG_CACHE_HOME", caches.string()},
                                                     {"TQ_AUDIO_DEVICE", "manual"}};
        if (!preload.empty()) {
            variables["LD_PRELOAD"] = preload;
        }
        return tqtest::runProgram({.arguments = command, .environment = variables});
    }
    [[nodiscard]] HostRun launchPreloaded(const std::string& what) const {
        return launch({kTone, what}, kLibrary);
    }
    void arm() const {
        const HostRun run = launch({kArm, "on"});
        ASSERT_EQ(run.code, 0) << run.text();
        ASSERT_EQ(run["result"], "0");
        ASSERT_EQ(run["enabled"], "1");
    }
    [[nodiscard]] std::uint32_t word(const fs::path& file, std::size_t offset) const {
        std::ifstream in(file, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(offset));
        std::uint32_t value = ~0U;
        in.read(reinterpret_cast<char*>(&value), sizeof(value));
        return value;
    }
    [[nodiscard]] std::uint32_t retries() const { return word(config, 4); }
    static void write(const fs::path& file, const std::string& bytes) {
        std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
    }
    /// It plays, hooks or not.
    static void expectPlays(const HostRun& run, const std::string& hooks) {
        EXPECT_EQ(run.code, 0) << run.text();
        EXPECT_EQ(run["hooks"], hooks) << run.text();
        EXPECT_EQ(run["played"], "10") << run.text();
        EXPECT_EQ(run["guard"], hooks == "started" ? "1" : "0") << run.text();
    }
};

TEST_F(Launches, AHostWithoutTheLibraryPlays) {
    expectPlays(launch({kTone, "play"}), "absent");
}

TEST_F(Launches, AFreshInstallationLeavesTheHooksOut) {
    expectPlays(launchPreloaded("play"), "out");
}

TEST_F(Launches, APreloadedLibraryHooksWhenTheGuardAllows) {
    arm();
    expectPlays(launchPreloaded("play"), "started");
}

TEST_F(Launches, ALinkedLibraryHooksWhenTheGuardAllows) {
    arm();
    expectPlays(launch({kLinkedTone, "play"}), "started");
}

TEST_F(Launches, ALibraryOpenedAfterTheFirstCallsHooksWhenTheGuardAllows) {
    arm();
    const HostRun run = launch({kTone, "open:" + kLibrary});
    EXPECT_EQ(run["first_played"], "10") << run.text();
    expectPlays(run, "started");
}

TEST_F(Launches, ALinkedOrOpenedLibraryStaysOutWithoutTheGuardsLeave) {
    expectPlays(launch({kLinkedTone, "play"}), "out");
    expectPlays(launch({kTone, "open:" + kLibrary}), "out");
}

TEST_F(Launches, APeacefulLaunchCostsNoRetry) {
    arm();
    for (int i = 0; i < 4; ++i) {
        expectPlays(launchPreloaded("play"), "started");
        EXPECT_EQ(word(count, 0), 0U);
    }
    EXPECT_EQ(retries(), 2U);
}

TEST_F(Launches, ADeathInsideTheCallbackIsCountedAndCostsOneRetry) {
    arm();
    EXPECT_EQ(launchPreloaded("die").signal, SIGKILL);
    EXPECT_EQ(word(count, 0), 1U);
    EXPECT_EQ(retries(), 2U) << "spent at the next launch";
    expectPlays(launchPreloaded("play"), "started");
    EXPECT_EQ(retries(), 1U);
    expectPlays(launchPreloaded("play"), "started");
    EXPECT_EQ(retries(), 1U) << "and only once";
}

TEST_F(Launches, ASecondDeathLeavesTheHooksOutAndArmingBringsThemBack) {
    arm();
    EXPECT_EQ(launchPreloaded("die").signal, SIGKILL);
    EXPECT_EQ(launchPreloaded("die").signal, SIGKILL);
    expectPlays(launchPreloaded("play"), "out");
    EXPECT_EQ(retries(), 0U);
    EXPECT_EQ(launchPreloaded("die").signal, SIGKILL);
    EXPECT_EQ(word(count, 0), 0U) << "without hooks a death is the host's own";
    expectPlays(launchPreloaded("play"), "out");

    arm();
    EXPECT_EQ(retries(), 2U);
    expectPlays(launchPreloaded("play"), "started");
}

TEST_F(Launches, WhatTheLastLaunchLeftIsToldToTheHost) {
    arm();
    EXPECT_EQ(launchPreloaded("die").signal, SIGKILL);
    const HostRun run = launch({kArm});
    EXPECT_EQ(run["entered"], "1");
    EXPECT_EQ(run["retries"], "2");
    EXPECT_EQ(launch({kArm})["entered"], "0");
    EXPECT_EQ(launch({kArm})["retries"], "1");
}

TEST_F(Launches, AHostThatTakesItsWishBackOrForbidsIsObeyed) {
    arm();
    EXPECT_EQ(launch({kArm, "off"})["enabled"], "0");
    expectPlays(launchPreloaded("play"), "out");
    arm();
    EXPECT_EQ(launch({kArm, "forbid"})["enabled"], "0");
    expectPlays(launchPreloaded("play"), "out");
    EXPECT_EQ(launch({kArm, "allow"})["enabled"], "1");
    expectPlays(launchPreloaded("play"), "started");
}

TEST_F(Launches, ATruncatedTableCountsAsEmpty) {
    arm();
    for (const std::uintmax_t size : {0U, 3U, 7U}) {
        fs::resize_file(config, size);
        expectPlays(launchPreloaded("play"), "out");
    }
    arm();
    expectPlays(launchPreloaded("play"), "started");
}

TEST_F(Launches, ATruncatedCountFileCostsNothing) {
    arm();
    fs::resize_file(count, 0);
    expectPlays(launchPreloaded("play"), "started");
    fs::resize_file(count, 2);
    expectPlays(launchPreloaded("play"), "started");
    EXPECT_EQ(retries(), 2U);
}

TEST_F(Launches, ACorruptTableLeavesTheHooksOut) {
    arm();
    write(config, std::string(4096, '\xFF'));
    expectPlays(launchPreloaded("play"), "out");
    const HostRun run = launch({kArm, "on"});
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run["result"], "0") << "a table of four thousand million items is refused";
    fs::remove(config);
    arm();
    expectPlays(launchPreloaded("play"), "started");
}

TEST_F(Launches, ACorruptCountSpendsARetryAtMost) {
    arm();
    write(count, std::string(4096, '\x7F'));
    expectPlays(launchPreloaded("play"), "started");
    EXPECT_EQ(retries(), 1U);
    write(count, std::string(4096, '\xFF'));
    expectPlays(launchPreloaded("play"), "started");
    EXPECT_EQ(retries(), 1U) << "a negative count is no death";
}

TEST_F(Launches, FlagFilesThatCannotBeOpenedLeaveTheHooksOut) {
    arm();
    for (const fs::path& file : {config, count}) {
        fs::remove(file);
        fs::create_directory(file);
        expectPlays(launchPreloaded("play"), "out");
        fs::remove(file);
        fs::create_symlink("/dev/null", file);
        expectPlays(launchPreloaded("play"), "out");
        fs::remove(file);
        arm();
    }
}

TEST_F(Launches, ACachesFolderThatCannotBeMadeLeavesTheHooksOut) {
    const fs::path blocked = caches / "file";
    write(blocked, "not a folder");
    for (const char* tail : {"", "/below"}) {
        const HostRun run =
            tqtest::runProgram({.arguments = {kTone, "play"},
                                .environment = {{"XDG_CACHE_HOME", blocked.string() + tail},
                                                {"TQ_AUDIO_DEVICE", "manual"},
                                                {"LD_PRELOAD", kLibrary}}});
        expectPlays(run, "out");
    }
}

TEST_F(Launches, OnTheClockedDeviceTheHostPlaysAsWell) {
    arm();
    const HostRun run = tqtest::runProgram({.arguments = {kTone, "play"},
                                            .environment = {{"XDG_CACHE_HOME", caches.string()},
                                                            {"TQ_AUDIO_DEVICE", "null"},
                                                            {"LD_PRELOAD", kLibrary}}});
    EXPECT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["hooks"], "started");
}

}  // namespace
