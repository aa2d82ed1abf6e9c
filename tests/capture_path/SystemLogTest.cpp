#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RZHookSet.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "TQHookSelfTest.h"

// What an installation of the hooks writes to the system log: for whoever wonders what is loaded.

namespace {

std::vector<std::string>& lines() {
    static std::vector<std::string> kept;
    return kept;
}

}  // namespace

/// Stands in for the C library's: the platform passes "%s" and the finished line.
extern "C" __attribute__((visibility("default"))) void syslog(int /*priority*/,
                                                              const char* /*format*/,
                                                              const char* line) {
    lines().emplace_back(line);
}
extern "C" __attribute__((visibility("default"))) void __syslog_chk(int /*priority*/, int /*flag*/,
                                                                    const char* /*format*/,
                                                                    const char* line) {
    lines().emplace_back(line);
}

namespace {

TEST(SystemLog, EachSetOfHooksIsAnnouncedOnce) {
    RZReplayAudioUnitCapturer::startHook();
    EXPECT_THAT(lines(), testing::ElementsAre("[RZReplay] start AudioUnitCapture"));
    RZReplayAudioUnitGraphCapturer::startHook();
    RZReplayAudioUnitCapturer::startHook();
    RZReplayAudioUnitGraphCapturer::startHook();
    EXPECT_THAT(lines(), testing::ElementsAre("[RZReplay] start AudioUnitCapture",
                                              "[RZReplay] start AUGraphCapture"));
}

TEST(SystemLog, SetsStartedTogetherAreAnnouncedInOrderAndThenTested) {
    RZHookSet::start({&RZUnitHooks, &RZGraphHooks});
    EXPECT_THAT(lines(), testing::ElementsAre("[RZReplay] start AudioUnitCapture",
                                              "[RZReplay] start AUGraphCapture"));
    EXPECT_TRUE(RZReplayAudioUnitCapturer::isHookStarted());
    EXPECT_TRUE(RZReplayAudioUnitGraphCapturer::isHookStarted());
    EXPECT_TRUE(TQHookSelfTest::isHookSuccess()) << "the graph calls must be redirected by then";
}

TEST(SystemLog, SetThatIsStartedAlreadyIsLeftOutOfAJointStart) {
    RZReplayAudioUnitGraphCapturer::startHook();
    RZHookSet::start({&RZUnitHooks, &RZGraphHooks});
    EXPECT_THAT(lines(), testing::ElementsAre("[RZReplay] start AUGraphCapture",
                                              "[RZReplay] start AudioUnitCapture"));
    EXPECT_TRUE(RZReplayAudioUnitCapturer::isHookStarted());
}

}  // namespace
