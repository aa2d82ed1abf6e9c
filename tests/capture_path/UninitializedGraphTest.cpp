#include "CapturePathFixture.h"
#include "RZReplayAudioUnitGraphCapturer.h"

// What a graph is given while it is uninitialised reaches its unit when it is initialised again.

namespace {

/// A graph whose unit has a callback from it, uninitialised. Its unit may play by itself.
struct UninitializedGraph : CapturePath {
    void SetUp() override {
        CapturePath::SetUp();
        host.play();
        ASSERT_EQ(AUGraphUninitialize(host.graph()), 0);
        unit = host.unitOf(host.output());
        ASSERT_EQ(AudioUnitInitialize(unit), 0);
        const AURenderCallbackStruct callback = next.callback();
        ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), host.output(), 0, &callback), 0);
    }
    void TearDown() override {
        host.dispose();
        CapturePath::TearDown();
    }
    /// What the object stands for while its unit plays a block.
    void* played() {
        EXPECT_EQ(AudioOutputUnitStart(unit), 0);
        const int before = host.sound.calls;
        const int beforeNext = next.calls;
        pump();
        EXPECT_EQ(AudioOutputUnitStop(unit), 0);
        EXPECT_EQ(host.sound.calls + next.calls, before + beforeNext + 1);
        return next.calls > beforeNext ? &next : &host.sound;
    }

    HostGraph host;
    HostSound next;
    AudioUnit unit = nullptr;
};

TEST_F(UninitializedGraph, GoesOnWithTheCallbackThatItsUnitHas) {
    EXPECT_EQ(played(), &host.sound);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
}

TEST_F(UninitializedGraph, TakesTheNewCallbackWhenItIsInitialisedWhateverTheSwitchSays) {
    RZReplayAudioUnitGraphCapturer::enableHook(NO);
    ASSERT_EQ(AUGraphInitialize(host.graph()), 0);
    RZReplayAudioUnitGraphCapturer::enableHook(YES);
    EXPECT_EQ(played(), &next);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &next);
}

TEST_F(UninitializedGraph, IsNotUpdated) {
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_EQ(played(), &host.sound);
}

TEST_F(UninitializedGraph, TakesTheNewCallbackAtAnUpdateWhileItsUnitPlays) {
    ASSERT_EQ(AudioOutputUnitStart(unit), 0);
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_EQ(played(), &next);
}

TEST_F(UninitializedGraph, OpenedAnewHasItsLastCallbackAtOnce) {
    ASSERT_EQ(AUGraphClose(host.graph()), 0);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &next);
}

}  // namespace
