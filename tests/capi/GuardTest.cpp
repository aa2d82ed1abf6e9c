#include <TQAudioRecord/tq_capture.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

// Every launch is a process of its own (see guard_probe.c) with a caches folder of the test's.

namespace {

struct Guard : testing::Test {
    std::string run(std::vector<std::string> commands) const {
        commands.insert(commands.begin(), TQ_CAPI_GUARD_PROBE);
        const auto end = tqtest::runProgram(
            {.arguments = commands, .environment = {{"XDG_CACHE_HOME", caches.path().string()}}});
        EXPECT_EQ(end.code, 0) << end.text();
        return end.output;
    }
    [[nodiscard]] std::filesystem::path folder() const {
        return caches.path() / std::filesystem::path(TQ_CAPI_GUARD_PROBE).filename() /
               "korva_audio_utils";
    }
    /// The config file, as a launch might have left it.
    void leave(std::uint32_t retries, const std::vector<std::vector<std::uint8_t>>& items,
               std::uint32_t inside = 0) const {
        std::filesystem::create_directories(folder());
        std::string bytes(4096, '\0');
        bytes[0] = static_cast<char>(items.size());
        bytes[4] = static_cast<char>(retries);
        for (std::size_t i = 0; i < items.size(); ++i) {
            bytes[8 + i * 8] = static_cast<char>(items[i][0]);
            bytes[12 + i * 8] = static_cast<char>(items[i][1]);
            bytes[13 + i * 8] = static_cast<char>(items[i][2]);
        }
        std::ofstream(folder() / "korva_audio_hook_config.flag", std::ios::binary) << bytes;
        std::string count(4096, '\0');
        count[0] = static_cast<char>(inside);
        std::ofstream(folder() / "korva_audio_hook_func_count.flag", std::ios::binary) << count;
    }

    TemporaryFolder caches;
};

TEST_F(Guard, AFreshProgramHasNeverBeenAsked) {
    EXPECT_EQ(run({"state", "hooks"}),
              "state=0 next=1 this=1 retries=0 atLoad=0 inside=0 ids=0 wanting=0 forbidding=0\n"
              "hooks=0 installed=0 tested=0 capturing=0\n");
}

TEST_F(Guard, ArmingCountsFromTheNextLaunchOn) {
    EXPECT_EQ(run({"arm", "7", "state", "hooks"}),
              "arm=0\n"
              "state=0 next=0 this=1 retries=2 atLoad=0 inside=0 ids=1 wanting=1 forbidding=0\n"
              "hooks=0 installed=0 tested=0 capturing=0\n");
    EXPECT_EQ(run({"state", "hooks"}),
              "state=0 next=0 this=0 retries=2 atLoad=2 inside=0 ids=1 wanting=1 forbidding=0\n"
              "hooks=0 installed=1 tested=1 capturing=0\n");
}

TEST_F(Guard, DisarmingTakesBackWhatAnyIdWants) {
    EXPECT_EQ(run({"arm", "7", "arm", "8", "disarm", "state"}),
              "arm=0\narm=0\ndisarm=0\n"
              "state=0 next=2 this=1 retries=2 atLoad=0 inside=0 ids=2 wanting=0 forbidding=0\n");
}

TEST_F(Guard, AProhibitionCountsMoreThanWishesAndRetries) {
    leave(0, {{7, 1, 0}, {8, 0, 1}});
    EXPECT_EQ(run({"state"}),
              "state=0 next=3 this=3 retries=0 atLoad=0 inside=0 ids=2 wanting=1 forbidding=1\n");
}

TEST_F(Guard, ADeathInsideCostsARetryAndTheLastOneTheHooks) {
    leave(2, {{7, 1, 0}}, 1);
    EXPECT_EQ(run({"state"}),
              "state=0 next=0 this=0 retries=1 atLoad=2 inside=1 ids=1 wanting=1 forbidding=0\n");
    leave(1, {{7, 1, 0}}, 3);
    EXPECT_EQ(run({"state"}),
              "state=0 next=4 this=4 retries=0 atLoad=1 inside=3 ids=1 wanting=1 forbidding=0\n");
    EXPECT_EQ(run({"state", "arm", "9", "state"}),
              "state=0 next=4 this=4 retries=0 atLoad=0 inside=0 ids=1 wanting=1 forbidding=0\n"
              "arm=0\n"
              "state=0 next=0 this=4 retries=2 atLoad=0 inside=0 ids=1 wanting=1 forbidding=0\n");
}

TEST_F(Guard, DisarmingLeavesProhibitionsAlsoWhereTheRetriesAreUsedUp) {
    leave(0, {{7, 1, 0}, {8, 0, 1}});
    EXPECT_EQ(run({"disarm", "state"}),
              "disarm=0\n"
              "state=0 next=3 this=3 retries=2 atLoad=0 inside=0 ids=2 wanting=0 forbidding=1\n");
}

TEST_F(Guard, WithoutFilesNothingCanBeArmed) {
    std::filesystem::create_directories(folder().parent_path());
    std::ofstream(folder()) << "a file where the folder should be";
    EXPECT_EQ(run({"state", "arm", "7", "disarm"}),
              "state=0 next=5 this=5 retries=0 atLoad=2 inside=0 ids=0 wanting=0 forbidding=0\n"
              "arm=1\ndisarm=1\n");
}

TEST_F(Guard, AFullTableRefusesAnotherId) {
    std::vector<std::vector<std::uint8_t>> items;
    for (std::uint8_t id = 1; id <= 20; ++id) {
        items.push_back({id, 0, 0});
    }
    leave(2, items);
    EXPECT_EQ(run({"arm", "21", "arm", "20"}), "arm=22\narm=0\n");
}

TEST_F(Guard, TellsItsFolderIfThereIsRoom) {
    const std::string path = folder().string();
    EXPECT_EQ(run({"folder", std::to_string(path.size() + 1)}), "folder=" + path + "\n");
    EXPECT_EQ(run({"folder", std::to_string(path.size())}), "folder=the text does not fit\n");
}

TEST(GuardArguments, AreChecked) {
    EXPECT_EQ(tq_guard_get_state(nullptr), TQ_ERROR_NULL);
    tq_guard_state state{};
    EXPECT_EQ(tq_guard_get_state(&state), TQ_ERROR_SIZE);
    state.size = sizeof state - 1;
    EXPECT_EQ(tq_guard_get_state(&state), TQ_ERROR_SIZE);
    EXPECT_EQ(tq_guard_folder(nullptr, 100), TQ_ERROR_NULL);
    char path = 'x';
    EXPECT_EQ(tq_guard_folder(&path, 0), TQ_ERROR_ROOM);
    EXPECT_EQ(path, 'x');
}

TEST(GuardReasons, HaveATextEach) {
    std::set<std::string> texts;
    for (int reason = TQ_GUARD_ARMED; reason <= TQ_GUARD_NO_FILES; ++reason) {
        EXPECT_TRUE(
            texts.insert(tq_guard_reason_text(static_cast<tq_guard_reason>(reason))).second);
    }
    EXPECT_STREQ(tq_guard_reason_text(static_cast<tq_guard_reason>(TQ_GUARD_NO_FILES + 1)),
                 "unknown");
}

}  // namespace
