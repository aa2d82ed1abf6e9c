#include "CapturePathFixture.h"

// An update of a running graph that the platform refuses for one edit: those before it are made,
// those behind it wait on. An output unit has no input 1, which is found at the update.

namespace {

struct RefusedUpdate : CapturePath {
    void SetUp() override {
        CapturePath::SetUp();
        host.play();
        pump();
        ASSERT_EQ(host.sound.calls, 1);
    }
    void TearDown() override {
        host.dispose();
        CapturePath::TearDown();
    }
    void give(HostSound& sound, UInt32 input) {
        const AURenderCallbackStruct callback = sound.callback();
        ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), host.output(), input, &callback), 0);
    }
    OSStatus update() { return AUGraphUpdate(host.graph(), nullptr); }

    HostGraph host;
    HostSound next;
    HostSound refused;
};

TEST_F(RefusedUpdate, BringsTheCallbackThatWasSetBeforeTheRefusedOne) {
    give(next, 0);
    give(refused, 1);
    EXPECT_EQ(update(), kAudioUnitErr_InvalidElement);
    pump();
    EXPECT_EQ(next.calls, 1);
    EXPECT_EQ(host.sound.calls, 1);
    EXPECT_EQ(refused.calls, 0);
}

TEST_F(RefusedUpdate, LeavesTheCallbackThatWasSetBehindTheRefusedOneToTheNext) {
    give(refused, 1);
    give(next, 0);
    EXPECT_EQ(update(), kAudioUnitErr_InvalidElement);
    pump();
    EXPECT_EQ(host.sound.calls, 2);
    EXPECT_EQ(next.calls, 0);
    EXPECT_EQ(update(), 0);
    pump();
    EXPECT_EQ(host.sound.calls, 2);
    EXPECT_EQ(next.calls, 1);
}

TEST_F(RefusedUpdate, FollowsOnlyWhatWaitsForItAndNotWhatWasBroughtBefore) {
    const AURenderCallbackStruct callback = refused.callback();
    const AUNode mixer = host.addMixer();
    ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), mixer, 0, &callback), 0);
    ASSERT_EQ(update(), 0);
    give(next, 0);
    give(refused, 1);
    EXPECT_EQ(update(), kAudioUnitErr_InvalidElement);
    pump();
    EXPECT_EQ(next.calls, 1);
    EXPECT_EQ(host.sound.calls, 1);
}

TEST_F(RefusedUpdate, IsPlayedAndRecordedFromTheSameCallback) {
    ASSERT_TRUE(startCapture());
    next.value = 0.5;
    give(next, 0);
    give(refused, 1);
    EXPECT_EQ(update(), kAudioUnitErr_InvalidElement);
    listener->clear();
    pump(6);
    ASSERT_FALSE(listener->posts().empty());
    EXPECT_EQ(listener->posts().back().samples()[0], 16384);
    EXPECT_EQ(next.calls, 6);
}

}  // namespace
