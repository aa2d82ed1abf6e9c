#include <algorithm>
#include <mutex>
#include <thread>

#include "graph/GraphFixture.h"
#include "support/Event.h"

namespace platform {
namespace {

class GraphUpdates : public MixGraph {
  protected:
    OSStatus update() { return AUGraphUpdate(graph, nullptr); }
    bool updateAtOnce() {
        Boolean updated = 9;
        EXPECT_EQ(AUGraphUpdate(graph, &updated), noErr);
        EXPECT_LE(updated, 1);
        return updated != 0;
    }
    /// A running graph in the middle of a slice on another thread.
    void startBlockedSlice() {
        blocker.body = [this](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                              AudioBufferList*) {
            gate.enterAndWait();
            return OSStatus{noErr};
        };
        ASSERT_EQ(setNodeCallback(graph, mixNode, 7, blocker), noErr);
        run();
        slice = std::thread([this] { player.pump(64); });
        gate.waitUntilEntered();
    }
    void endSlice() {
        gate.open();
        slice.join();
        blocker.body = nullptr;
    }

    Gate gate;
    Callback blocker;
    std::thread slice;
};

TEST_F(GraphUpdates, OnAGraphThatIsNotRunningSucceedAtOnce) {
    EXPECT_EQ(update(), noErr);
    EXPECT_TRUE(updateAtOnce());
    open();
    EXPECT_EQ(update(), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_TRUE(updateAtOnce());
}

TEST_F(GraphUpdates, EditsOfARunningGraphWaitForThem) {
    Callback callback;
    callback.body = constant(0.5F);
    run();
    ASSERT_EQ(setNodeCallback(graph, mixNode, 2, callback), noErr);
    EXPECT_EQ(heard(), 0.0F);
    EXPECT_EQ(update(), noErr);
    EXPECT_EQ(heard(), 0.5F);
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 2), noErr);
    EXPECT_EQ(heard(), 0.5F);
    EXPECT_TRUE(updateAtOnce());
    EXPECT_EQ(heard(), 0.0F);
}

TEST_F(GraphUpdates, AStartBringsWhatWasLeft) {
    Callback callback;
    callback.body = constant(0.5F);
    run();
    ASSERT_EQ(setNodeCallback(graph, mixNode, 2, callback), noErr);
    ASSERT_EQ(AUGraphStop(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(heard(), 0.5F);
}

TEST_F(GraphUpdates, AnswerWithTheFirstErrorAndGoOnBehindItNextTime) {
    Callback callback;
    callback.body = constant(0.5F);
    run();
    ASSERT_EQ(setNodeCallback(graph, mixNode, 99, callback), noErr);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, callback), noErr);
    EXPECT_EQ(interactions(graph), 3U);
    EXPECT_EQ(update(), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(interactions(graph), 2U) << "the one that failed is forgotten";
    EXPECT_EQ(update(), noErr);
    EXPECT_EQ(heard(), 0.5F);
}

TEST_F(GraphUpdates, ANewNodeOfARunningGraphPlaysAfterThem) {
    Callback callback;
    callback.body = constant(0.5F);
    run();
    const AUNode node = addNode(graph, converter());
    const auto format = stream_formats::floatPlanar(deviceRate, 2);
    ASSERT_EQ(setFormat(unitOf(graph, node), kAudioUnitScope_Input, 0, format), noErr);
    ASSERT_EQ(setFormat(unitOf(graph, node), kAudioUnitScope_Output, 0, format), noErr);
    ASSERT_EQ(setNodeCallback(graph, node, 0, callback), noErr);
    ASSERT_EQ(AUGraphConnectNodeInput(graph, node, 0, mixNode, 4), noErr);
    EXPECT_EQ(heard(), 0.0F);
    EXPECT_EQ(update(), noErr);
    EXPECT_EQ(heard(), 0.5F);
    const AudioUnit unit = unitOf(graph, node);
    ASSERT_EQ(AUGraphRemoveNode(graph, node), noErr);
    EXPECT_EQ(heard(), 0.5F) << "removed, but its unit plays until the update";
    EXPECT_EQ(update(), noErr);
    EXPECT_EQ(heard(), 0.0F);
    EXPECT_EQ(AudioUnitInitialize(unit), kAudioComponentErr_InstanceInvalidated);
}

TEST_F(GraphUpdates, DuringASliceEndWithoutSuccessAfterAWhileAndLoseNothing) {
    Callback callback;
    callback.body = constant(0.5F);
    startBlockedSlice();
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    EXPECT_EQ(update(), kAUGraphErr_CannotDoInCurrentContext);
    EXPECT_EQ(update(), kAUGraphErr_CannotDoInCurrentContext) << "the slice is still the same";
    EXPECT_FALSE(updateAtOnce());
    endSlice();
    EXPECT_EQ(callback.calls, 0) << "the slice went on with what it began with";
    EXPECT_EQ(heard(), 0.5F) << "the next one has the edit";
    EXPECT_EQ(update(), noErr);
    EXPECT_TRUE(updateAtOnce());
}

TEST_F(GraphUpdates, WaitForTheSliceToEnd) {
    Callback callback;
    startBlockedSlice();
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 7), noErr);
    OSStatus status = -1;
    std::thread updater([&] {
        // As often as a program would, should this machine be slow to end the slice.
        do {
            status = update();
        } while (status == kAUGraphErr_CannotDoInCurrentContext);
    });
    endSlice();
    updater.join();
    EXPECT_EQ(status, noErr);
    EXPECT_EQ(blocker.calls, 1);
    heard();
    EXPECT_EQ(blocker.calls, 1);
}

TEST_F(GraphUpdates, WithNothingToDoNeverWait) {
    startBlockedSlice();
    EXPECT_EQ(update(), noErr);
    EXPECT_TRUE(updateAtOnce());
    endSlice();
}

TEST_F(GraphUpdates, FromACallbackDoNotWait) {
    Callback inner;
    inner.body = constant(0.25F);
    Callback callback;
    OSStatus status = -1;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        if (callback.calls == 1) {
            EXPECT_EQ(setNodeCallback(graph, mixNode, 1, inner), noErr);
            EXPECT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
            status = update();
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    heard();
    EXPECT_EQ(status, noErr);
    EXPECT_EQ(heard(), 0.25F);
    EXPECT_EQ(callback.calls, 1);
}

TEST_F(GraphUpdates, AConverterMayBeDisconnectedInsideTheCallbackThatFeedsIt) {
    const AUNode node = addNode(graph, converter());
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        EXPECT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 3), noErr);
        EXPECT_EQ(update(), noErr);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, node, 0, callback), noErr);
    ASSERT_EQ(AUGraphConnectNodeInput(graph, node, 0, mixNode, 3), noErr);
    run();
    heard();
    heard();
    EXPECT_EQ(callback.calls, 1);
}

TEST_F(GraphUpdates, ACallerThatHoldsALockOfTheCallbackIsLetGo) {
    std::mutex shared;
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        gate.enterAndWait();
        const std::lock_guard lock(shared);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    slice = std::thread([this] { player.pump(64); });
    gate.waitUntilEntered();
    {
        const std::lock_guard lock(shared);
        gate.open();
        ASSERT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
        EXPECT_EQ(update(), kAUGraphErr_CannotDoInCurrentContext);
    }
    slice.join();
    EXPECT_EQ(update(), noErr);
}

TEST_F(GraphUpdates, GraphCallsOfACallbackPassWhileAnUpdateWaits) {
    Callback callback;
    OSStatus inside = -1;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        gate.enterAndWait();
        UInt32 count = 0;
        inside = AUGraphGetNodeCount(graph, &count);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    slice = std::thread([this] { player.pump(64); });
    gate.waitUntilEntered();
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
    std::thread updater([&] { static_cast<void>(update()); });
    gate.open();
    slice.join();
    updater.join();
    EXPECT_EQ(inside, noErr);
}

TEST_F(GraphUpdates, StopWaitsForTheSlice) {
    std::atomic<bool> ended{false};
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        gate.enterAndWait();
        ended.store(true);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    slice = std::thread([this] { player.pump(64); });
    gate.waitUntilEntered();
    std::thread opener([this] { gate.open(); });
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_TRUE(ended.load());
    opener.join();
    slice.join();
}

TEST_F(GraphUpdates, DisposeWaitsForTheSlice) {
    std::atomic<bool> ended{false};
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) {
        gate.enterAndWait();
        ended.store(true);
        return OSStatus{noErr};
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    slice = std::thread([this] { player.pump(64); });
    gate.waitUntilEntered();
    std::thread opener([this] { gate.open(); });
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
    EXPECT_TRUE(ended.load());
    graph = nullptr;
    opener.join();
    slice.join();
}

}  // namespace
}  // namespace platform
