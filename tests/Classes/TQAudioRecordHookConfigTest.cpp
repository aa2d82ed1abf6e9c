#include "TQAudioRecordHookConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

// Every launch is a process of its own (see HookConfigProbe.cpp) with a caches folder of the
// test's.

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

/// The lines that a launch with those commands printed; its exit code too.
struct Launch {
    std::vector<std::string> answers;
    int code = -1;
};

Launch launch(const fs::path& caches, const std::vector<std::string>& commands) {
    tqtest::ProgramSetup setup{.arguments = {TQ_HOOK_CONFIG_PROBE},
                               .environment = {{"XDG_CACHE_HOME", caches}}};
    setup.arguments.insert(setup.arguments.end(), commands.begin(), commands.end());
    const tqtest::ProgramEnd end = tqtest::runProgram(setup);
    Launch result{{}, end.code};
    std::istringstream lines(end.output);
    for (std::string line; std::getline(lines, line);) {
        result.answers.push_back(line);
    }
    return result;
}

class TQAudioRecordHookConfigTest : public testing::Test {
  protected:
    std::vector<std::string> run(const std::vector<std::string>& commands) const {
        const Launch result = launch(caches, commands);
        EXPECT_EQ(0, result.code);
        return result.answers;
    }
    /// A run that ends inside an intercepted callback.
    void die() const { EXPECT_EQ(9, launch(caches, {"die"}).code); }

    TemporaryFolder root;
    const fs::path caches = root.path() / "caches";
    const fs::path folder =
        caches / fs::path(TQ_HOOK_CONFIG_PROBE).filename() / "korva_audio_utils";
};

}  // namespace

TEST_F(TQAudioRecordHookConfigTest, LoadingMakesTheFolderWithBothFlagFiles) {
    ASSERT_FALSE(fs::exists(caches));
    run({});
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_TRUE(fs::is_regular_file(folder / "korva_audio_hook_config.flag"));
    EXPECT_TRUE(fs::is_regular_file(folder / "korva_audio_hook_func_count.flag"));
}

TEST_F(TQAudioRecordHookConfigTest, FreshInstallHasNoHooks) {
    EXPECT_THAT(run({"isEnabled", "isStarted", "state"}), ElementsAre("0", "0000", "0 0"));
}

TEST_F(TQAudioRecordHookConfigTest, EnablingTakesEffectAtTheNextStart) {
    EXPECT_THAT(run({"enable", "1", "1", "isEnabled", "isStarted"}), ElementsAre("0", "1", "0000"))
        << "this run is not changed";
    EXPECT_THAT(run({"isEnabled", "isStarted"}), ElementsAre("1", "1111"));
}

TEST_F(TQAudioRecordHookConfigTest, DisablingTakesEffectAtTheNextStart) {
    run({"enable", "1", "1"});
    EXPECT_THAT(run({"enable", "1", "0", "isEnabled", "isStarted"}), ElementsAre("0", "0", "1111"));
    EXPECT_THAT(run({"isStarted"}), ElementsAre("0000"));
}

TEST_F(TQAudioRecordHookConfigTest, ForbiddingOneHookKeepsAllOut) {
    EXPECT_THAT(run({"enable", "1", "1", "forbid", "2", "1", "isEnabled"}),
                ElementsAre("0", "0", "0"));
    EXPECT_THAT(run({"isStarted", "forbid", "2", "0", "isEnabled"}), ElementsAre("0000", "0", "1"));
    EXPECT_THAT(run({"isStarted"}), ElementsAre("1111"));
}

TEST_F(TQAudioRecordHookConfigTest, TwentyFirstIdIsRefused) {
    std::vector<std::string> commands;
    for (int id = 1; id <= 20; ++id) {
        commands.insert(commands.end(), {"enable", std::to_string(id), "1"});
    }
    commands.insert(commands.end(), {"enable", "21", "1", "forbid", "22", "1", "enable", "20", "0",
                                     "forbid", "1", "0"});
    std::vector<std::string> expected(20, "0");
    expected.insert(expected.end(), {"22", "22", "0", "0"});
    EXPECT_EQ(expected, run(commands));
}

TEST_F(TQAudioRecordHookConfigTest, StateTellsHowTheLastRunEnded) {
    run({"enable", "1", "1"});
    EXPECT_THAT(run({"state"}), ElementsAre("0 2")) << "it ended well";
    die();
    EXPECT_THAT(run({"state", "isStarted"}), ElementsAre("1 2", "1111")) << "one retry is left";
    die();
    EXPECT_THAT(run({"state", "isEnabled", "isStarted"}), ElementsAre("1 1", "0", "0000"));
    EXPECT_THAT(run({"state", "enable", "1", "1"}), ElementsAre("0 0", "0"));
    EXPECT_THAT(run({"state", "isStarted"}), ElementsAre("0 2", "1111")) << "armed again";
}

TEST_F(TQAudioRecordHookConfigTest, WithoutAFolderNothingIsInitialised) {
    fs::create_directories(root.path());
    std::ofstream(caches) << "a file where the folder should be";
    EXPECT_THAT(
        run({"init", "enable", "1", "1", "forbid", "1", "1", "isEnabled", "state", "isStarted"}),
        ElementsAre("20", "1", "1", "0", "0 2", "0000"));
}

TEST_F(TQAudioRecordHookConfigTest, FileInTheFoldersPlaceIsAFailureToo) {
    fs::create_directories(folder.parent_path());
    std::ofstream(folder) << "a file";
    EXPECT_THAT(run({"init", "enable", "1", "1"}), ElementsAre("20", "1"));
}

TEST_F(TQAudioRecordHookConfigTest, FailedInitialisationIsTriedAgain) {
    std::ofstream(caches) << "a file where the folder should be";
    EXPECT_THAT(run({"init", "remove", caches.string(), "init", "enable", "1", "1"}),
                ElementsAre("20", "0", "0"));
    EXPECT_THAT(run({"isStarted"}), ElementsAre("1111"));
}

TEST_F(TQAudioRecordHookConfigTest, SecondInitialisationTouchesNoFile) {
    EXPECT_THAT(run({"remove", folder.string(), "init"}), ElementsAre("0"));
    EXPECT_FALSE(fs::exists(folder / "korva_audio_hook_config.flag"));
}

TEST_F(TQAudioRecordHookConfigTest, TableOfTooManyItemsIsItsOwnFailure) {
    fs::create_directories(folder);
    std::string bytes(4096, '\0');
    bytes[0] = 21;
    bytes[4] = 2;
    std::ofstream(folder / "korva_audio_hook_config.flag", std::ios::binary) << bytes;
    EXPECT_THAT(run({"init", "isEnabled", "enable", "1", "1"}), ElementsAre("21", "0", "1"));
}

TEST_F(TQAudioRecordHookConfigTest, InstallingTheHooksWorksOncePerSet) {
    EXPECT_THAT(run({"isStarted", "startUnits", "isStarted", "startUnits", "startGraphs",
                     "startGraphs", "isStarted"}),
                ElementsAre("0000", "1000", "1111"))
        << "both sets together make the collect manager's answer";
}

TEST_F(TQAudioRecordHookConfigTest, GraphHooksAloneDoNotCountAsStarted) {
    EXPECT_THAT(run({"startGraphs", "isStarted"}), ElementsAre("0101"));
}

TEST(TQAudioRecordHookConfigObjectTest, OneInstancePerProcess) {
    EXPECT_EQ(&TQAudioRecordHookConfig::shared(), &TQAudioRecordHookConfig::shared());
}

TEST(TQAudioRecordHookConfigObjectTest, EveryStateIsANewRecord) {
    TQAudioRecordHookConfig& config = TQAudioRecordHookConfig::shared();
    const auto state = config.getPreLaunchState();
    ASSERT_NE(nullptr, state);
    state->setPreEnterCount(77);
    state->setCurrentRetryCount(78);
    EXPECT_EQ(77, state->preEnterCount());
    EXPECT_EQ(78, state->currentRetryCount());
    EXPECT_NE(77, config.getPreLaunchState()->preEnterCount());
    EXPECT_NE(state, config.getPreLaunchState());
}

TEST(TQAudioRecordHookConfigObjectTest, PlainStateIsZero) {
    const TQAudioRecordPreLaunchState state;
    EXPECT_EQ(0, state.preEnterCount());
    EXPECT_EQ(0, state.currentRetryCount());
}
