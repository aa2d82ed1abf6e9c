#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "Bytes.h"
#include "audio_hook_config.h"
#include "support/TemporaryFolder.h"

namespace korva_audio_utils {
namespace {

/// What one launch of a program found.
struct Launch {
    int init;
    PreLaunchState state;
    bool hooksEnabled;
};

// Every launch is a process of its own, as in life. The parent never makes the one instance, so
// each child starts without it.
class AudioHookConfigCrashTest : public testing::Test {
  protected:
    /// Runs body in a child process and returns its wait status.
    template <typename Body>
    static int InChild(Body body) {
        const pid_t child = fork();
        if (child == 0) {
            body();
            std::_Exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }
    template <typename Body>
    void KilledLaunch(Body body) {
        const int status = InChild([&] {
            if (AudioHookConfig::getInstance()->init(folder_.path().c_str()) == 0) {
                body();
                kill(getpid(), SIGKILL);
            }
        });
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    }
    void DieInsideAHook() {
        KilledLaunch([] {
            const AudioHookFunctionGuards guards;
            kill(getpid(), SIGKILL);
        });
    }
    void Arm() {
        const int status = InChild([&] {
            AudioHookConfig* const config = AudioHookConfig::getInstance();
            if (config->init(folder_.path().c_str()) != 0 || config->enableHook(1, true) != 0) {
                std::_Exit(1);
            }
        });
        EXPECT_EQ(status, 0);
    }
    /// A launch in a store of this process, which ends with it without entering anything.
    Launch Look() {
        AudioHookConfigImpl config;
        const int init = config.init(folder_.path().c_str());
        return {init, config.getPreLaunchState(), config.isHookEnable()};
    }
    void ExpectLaunch(int enterCount, int retryCount, bool hooksEnabled) {
        const Launch launch = Look();
        EXPECT_EQ(launch.init, 0);
        EXPECT_EQ(launch.state.enterCount, enterCount);
        EXPECT_EQ(launch.state.retryCount, retryCount);
        EXPECT_EQ(launch.hooksEnabled, hooksEnabled);
    }

    TemporaryFolder folder_;
};

TEST_F(AudioHookConfigCrashTest, ArmedGuardSurvivesTheProcess) {
    Arm();
    ExpectLaunch(0, 2, true);
}

TEST_F(AudioHookConfigCrashTest, DeathInsideAHookCostsOneRetry) {
    Arm();
    DieInsideAHook();
    ExpectLaunch(1, 2, true);
    ExpectLaunch(0, 1, true);
}

TEST_F(AudioHookConfigCrashTest, SecondDeathInARowLeavesTheHooksOutUntilTheyAreArmedAgain) {
    Arm();
    DieInsideAHook();
    DieInsideAHook();
    ExpectLaunch(1, 1, false);
    ExpectLaunch(0, 0, false);
    DieInsideAHook();
    ExpectLaunch(1, 0, false);
    Arm();
    ExpectLaunch(0, 2, true);
}

TEST_F(AudioHookConfigCrashTest, DeathAfterLeavingTheHookCostsNothing) {
    Arm();
    KilledLaunch([] { const AudioHookFunctionGuards guards; });
    ExpectLaunch(0, 2, true);
}

TEST_F(AudioHookConfigCrashTest, NestedEntriesAreCountedAtDeath) {
    Arm();
    KilledLaunch([] {
        const AudioHookFunctionGuards outer;
        const AudioHookFunctionGuards inner;
        kill(getpid(), SIGKILL);
    });
    ExpectLaunch(2, 2, true);
}

TEST_F(AudioHookConfigCrashTest, DeathInsideAHookAfterTheHostEnabledOneCostsNothing) {
    Arm();
    KilledLaunch([] {
        AudioHookConfig::getInstance()->enableHook(1, true);
        const AudioHookFunctionGuards guards;
        kill(getpid(), SIGKILL);
    });
    ExpectLaunch(0, 2, true);
}

TEST_F(AudioHookConfigCrashTest, DeathInsideAHookOfAnUnarmedStoreIsReportedAndHooksStayOut) {
    DieInsideAHook();
    ExpectLaunch(1, 0, false);
}

}  // namespace
}  // namespace korva_audio_utils
