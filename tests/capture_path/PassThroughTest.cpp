#include "CapturePathFixture.h"
#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"

// Calls that pass straight through while units are captured: the device plays what the host asked
// for, and the recording goes on with it.

namespace {

using testing::IsEmpty;

struct PassThrough : CapturePath {
    void TearDown() override {
        letCallsPass(NO);
        CapturePath::TearDown();
    }
    static void letCallsPass(BOOL pass) {
        RZReplayAudioUnitCapturer::enableHook(!pass);
        RZReplayAudioUnitGraphCapturer::enableHook(!pass);
    }
    /// Plays some slices; the first sample of the track's last block, -1 when none was recorded.
    double lastRecorded() {
        listener->clear();
        pump(6);
        const auto blocks = listener->posts();
        return blocks.empty() ? -1 : blocks.back().samples().at(0) / 32768.0;
    }
    HostSound other;
};

constexpr double kClose = 1e-3;

TEST_F(PassThrough, AUnitsCallbackThatIsSetMeanwhileIsRecorded) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    ASSERT_NEAR(lastRecorded(), 0.25, kClose);
    letCallsPass(YES);
    logs->clear();
    other.value = 0.5;
    const AURenderCallbackStruct callback = other.callback();
    ASSERT_EQ(AudioUnitSetProperty(host.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
              0);
    EXPECT_THAT(logs->lines(), IsEmpty());
    letCallsPass(NO);
    EXPECT_NEAR(lastRecorded(), 0.5, kClose);
    EXPECT_GT(other.calls, 0);
}

struct PassThroughGraph : PassThrough {
    void SetUp() override {
        PassThrough::SetUp();
        other.value = 0.5;
        host.play();
        ASSERT_TRUE(startCapture());
        ASSERT_NEAR(lastRecorded(), 0.25, kClose);
    }
    void setOther() {
        const AURenderCallbackStruct callback = other.callback();
        ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), host.output(), 0, &callback), 0);
    }
    HostGraph host;
};

TEST_F(PassThroughGraph, ANodesCallbackThatIsSetAndUpdatedMeanwhileIsRecorded) {
    letCallsPass(YES);
    logs->clear();
    setOther();
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_THAT(logs->lines(), IsEmpty());
    letCallsPass(NO);
    EXPECT_NEAR(lastRecorded(), 0.5, kClose);
}

TEST_F(PassThroughGraph, ANodesCallbackThatIsSetMeanwhileAndUpdatedLaterIsRecorded) {
    letCallsPass(YES);
    setOther();
    letCallsPass(NO);
    ASSERT_NEAR(lastRecorded(), 0.25, kClose);
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_NEAR(lastRecorded(), 0.5, kClose);
}

TEST_F(PassThroughGraph, AnUpdateThatPassesThroughBringsTheCallbackThatWaitedForIt) {
    setOther();
    letCallsPass(YES);
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    letCallsPass(NO);
    EXPECT_NEAR(lastRecorded(), 0.5, kClose);
    EXPECT_GT(other.calls, 0);
}

TEST_F(PassThroughGraph, AStartThatPassesThroughBringsTheCallbackThatWaitedForIt) {
    setOther();
    ASSERT_EQ(AUGraphStop(host.graph()), 0);
    letCallsPass(YES);
    ASSERT_EQ(AUGraphStart(host.graph()), 0);
    pump(2);
    EXPECT_GT(other.calls, 0);
}

}  // namespace
