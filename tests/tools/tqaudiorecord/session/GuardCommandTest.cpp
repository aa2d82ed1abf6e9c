#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "SessionFixture.h"
#include "session/GuardCommand.h"

// The crash guards of real programs, seen and set from the command line.

namespace {

using namespace tqrecorder;

struct GuardCommand : Session {
    GuardReport guard(Options::Action action, const std::string& command = kHost) {
        options.action = action;
        options.command = {command};
        GuardReport report = runGuardCommand(options, kGate);
        EXPECT_TRUE(report.isDone) << report.error;
        options.action = Options::Action::kRecord;
        return report;
    }
};

TEST_F(GuardCommand, IsSeenArmedAndDisarmed) {
    EXPECT_EQ(guard(Options::Action::kGuardStatus).state, GuardState::kNeverEnabled);
    GuardReport report = guard(Options::Action::kGuardArm);
    EXPECT_EQ(report.state, GuardState::kArmed);
    EXPECT_EQ(report.retriesLeft, 2);
    EXPECT_EQ(report.name, "recorded_host");
    EXPECT_EQ(report.text(), "recorded_host: armed, 2 retries left");
    EXPECT_EQ(guard(Options::Action::kGuardStatus).state, GuardState::kArmed);
    EXPECT_EQ(guard(Options::Action::kGuardDisarm).state, GuardState::kNotWanted);
    EXPECT_EQ(guard(Options::Action::kGuardStatus).state, GuardState::kNotWanted);
}

TEST_F(GuardCommand, WithDamagedFilesSaysWhichFolderToDelete) {
    const std::filesystem::path folder = caches / "recorded_host" / "korva_audio_utils";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "korva_audio_hook_config.flag") << "nonsense";
    options.action = Options::Action::kGuardArm;
    options.command = {kHost};
    const std::string advice = "the crash guard's files in " + folder.string() +
                               " are damaged; delete that folder and start the program again";
    const GuardReport armed = runGuardCommand(options, kGate);
    EXPECT_FALSE(armed.isDone);
    EXPECT_EQ(armed.error, "recorded_host: the crash guard cannot be changed: " + advice);
    EXPECT_EQ(guard(Options::Action::kGuardStatus).text(), "recorded_host: " + advice);
    record({kHost, "tone", "0.3"});
    EXPECT_EQ(sink.processes.at(1).facts.brokenGuard, folder.string());
    std::filesystem::remove_all(folder);
    EXPECT_EQ(guard(Options::Action::kGuardArm).state, GuardState::kArmed);
}

TEST_F(GuardCommand, WithoutAFolderSaysWhereItCannotBeMade) {
    const std::filesystem::path file = caches / "file";
    std::ofstream(file) << "in the way";
    setenv("XDG_CACHE_HOME", file.c_str(), 1);
    EXPECT_EQ(guard(Options::Action::kGuardStatus).text(),
              "recorded_host: the crash guard's folder " + file.string() +
                  "/recorded_host/korva_audio_utils cannot be made; see to it that you may write "
                  "to " +
                  file.string());
}

TEST_F(GuardCommand, ArmedByHandRecordsWithoutArming) {
    guard(Options::Action::kGuardArm);
    options.armGuard = false;
    record({kHost, "tone", "0.3"});
    EXPECT_TRUE(sink.processes.at(1).facts.hooksInstalled);
    EXPECT_GT(sink.processes.at(1).facts.blocksWithSound, 0U);
}

TEST_F(GuardCommand, WhoseRetriesAreUsedUpIsRestoredByArmingOnly) {
    record({kHost, "die"});
    record({kHost, "die"});
    const GuardReport report = guard(Options::Action::kGuardStatus);
    EXPECT_EQ(report.state, GuardState::kUsedUp);
    EXPECT_THAT(report.text(), testing::HasSubstr("tqaudiorecord guard arm"));
    EXPECT_EQ(guard(Options::Action::kGuardArm).retriesLeft, 2);
    sink.processes.clear();
    record({kHost, "tone", "0.3"});
    EXPECT_GT(sink.processes.at(1).facts.blocksWithSound, 0U);
}

TEST_F(GuardCommand, OfOneProgramIsNotAnothers) {
    guard(Options::Action::kGuardArm);
    EXPECT_EQ(guard(Options::Action::kGuardStatus, kOther).state, GuardState::kNeverEnabled);
}

TEST_F(GuardCommand, DoesNotRunTheProgram) {
    options.command = {kHost};
    options.action = Options::Action::kGuardStatus;
    // A host without arguments would play for a minute and fail.
    const GuardReport report = runGuardCommand(options, kGate);
    EXPECT_TRUE(report.isDone);
    EXPECT_TRUE(report.usesPlatform);
}

TEST_F(GuardCommand, OfACommandThatIsNotThereIsAnError) {
    options.command = {"no-such-command-anywhere"};
    options.action = Options::Action::kGuardStatus;
    const GuardReport report = runGuardCommand(options, kGate);
    EXPECT_FALSE(report.isDone);
    EXPECT_EQ(report.error, "no-such-command-anywhere: not found");
}

}  // namespace
