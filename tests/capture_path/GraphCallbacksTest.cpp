#include "CapturePathFixture.h"
#include "RZHookSet.h"
#include "RZReplayAudioUnitGraphCapturer.h"

// What becomes of the callbacks that a host gives its graph's nodes.

namespace {

using testing::ElementsAre;

constexpr const char* kSetCallback = "Record_graph_AUGraphSetNodeInputCallback";

auto graphLine(const char* function, int level, const std::string& message) {
    return IsLogLine(kGraphHookFile, function, level, message);
}

class GraphCallbacks : public CapturePath {
  protected:
    /// One slice through what the host has opened and wired.
    void run(HostGraph& host) {
        host.setOutputFormat();
        AUGraphInitialize(host.graph());
        AUGraphStart(host.graph());
        pump();
    }
};

TEST_F(GraphCallbacks, ACallbackSetBeforeTheOpenIsChained) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(host.setCallback(node), 0);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_EQ(host.object()->origin_inputProc(), &HostSound::render);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
    run(host);
    EXPECT_EQ(host.sound.calls, 1);
}

TEST_F(GraphCallbacks, ACallbackSetAfterTheOpenGoesToTheObject) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    ASSERT_EQ(host.setCallback(node), 0);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
    run(host);
    EXPECT_EQ(host.sound.calls, 1);
}

TEST_F(GraphCallbacks, TheCallbackOfAnotherNodeIsLeftAlone) {
    HostGraph host;
    host.addOutput();
    const AUNode mixer = host.addMixer();
    EXPECT_EQ(host.setCallback(mixer), 0);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_EQ(host.object()->origin_inputProc(), nullptr);
    EXPECT_EQ(host.setCallback(mixer), 0);
    EXPECT_EQ(host.object()->origin_inputProc(), nullptr);
}

TEST_F(GraphCallbacks, AnotherInputThan0OfTheTrackedNodeKeepsTheHostsCallback) {
    HostGraph host;
    HostSound other;
    const AUNode node = host.addOutput();
    const AURenderCallbackStruct callback = other.callback();
    ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), node, 2, &callback), 0);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), node, 1, &callback), 0);
    EXPECT_EQ(host.object()->origin_inputProc(), nullptr);
    ASSERT_EQ(host.setCallback(node, 0), 0);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
    const RZOwnCalls asTheyAre;
    AUNodeInteraction all[3];
    UInt32 count = 3;
    ASSERT_EQ(AUGraphGetNodeInteractions(host.graph(), node, &count, all), 0);
    ASSERT_EQ(count, 3U);
    for (const AUNodeInteraction& one : all) {
        const AUNodeRenderCallback& now = one.nodeInteraction.inputCallback;
        EXPECT_EQ(now.cback.inputProcRefCon,
                  now.destInputNumber == 0 ? static_cast<void*>(host.graph()) : &other);
    }
}

TEST_F(GraphCallbacks, WhoAsksForAGraphsCallbacksIsToldOfItsOwnWhateverTheSwitchSays) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    ASSERT_EQ(host.setCallback(node), 0);
    for (const BOOL isRecording : {NO, YES}) {
        RZReplayAudioUnitGraphCapturer::enableHook(isRecording);
        AUNodeInteraction one{};
        UInt32 count = 1;
        ASSERT_EQ(AUGraphGetNodeInteractions(host.graph(), node, &count, &one), 0);
        EXPECT_EQ(one.nodeInteraction.inputCallback.cback.inputProc, &HostSound::render);
        EXPECT_EQ(one.nodeInteraction.inputCallback.cback.inputProcRefCon, &host.sound);
        AUNodeInteraction first{};
        ASSERT_EQ(AUGraphGetInteractionInfo(host.graph(), 0, &first), 0);
        EXPECT_EQ(first.nodeInteraction.inputCallback.cback.inputProc, &HostSound::render);
        EXPECT_EQ(first.nodeInteraction.inputCallback.cback.inputProcRefCon, &host.sound);
    }
}

TEST_F(GraphCallbacks, ANullProcedureIsStoredAndPassedOn) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(host.setCallback(node), 0);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    const AURenderCallbackStruct none{nullptr, &host};
    EXPECT_EQ(AUGraphSetNodeInputCallback(host.graph(), node, 0, &none), 0);
    EXPECT_EQ(host.object()->origin_inputProc(), nullptr);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host);
}

TEST_F(GraphCallbacks, SettingACallbackIsLoggedWithItsStatus) {
    HostGraph host;
    const AUNode node = host.addOutput();
    platform.fail("AUGraphSetNodeInputCallback", -10861);
    const AURenderCallbackStruct callback = host.sound.callback();
    EXPECT_EQ(AUGraphSetNodeInputCallback(host.graph(), node, 3, &callback), -10861);
    EXPECT_THAT(logs->linesOf(kSetCallback),
                ElementsAre(graphLine(kSetCallback, 2,
                                      "[AUGraphHook] AUGraphSetNodeInputCallback: " +
                                          pointerText(host.graph()) + ", " + std::to_string(node) +
                                          ", 3, " + pointerText(&callback) + ", err:-10861")));
    EXPECT_EQ(AUGraphSetNodeInputCallback(host.graph(), node, 0, nullptr), -10861);
}

TEST_F(GraphCallbacks, TheCallbackIsRecordedBeforeThePlatformIsCalled) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    bool seen = false;
    platform.watch("AUGraphSetNodeInputCallback", [&](const auto&) {
        seen = true;
        EXPECT_EQ(host.object()->origin_inputProc(), &HostSound::render);
    });
    host.setCallback(node);
    EXPECT_TRUE(seen);
    platform.watch("AUGraphSetNodeInputCallback", {});
}

// The update waits for slices that run the old callback: one that began in between with ours would
// call what the host believes gone.
TEST_F(GraphCallbacks, ACallbackThatWaitsForTheUpdateStandsBehindOursBeforeThePlatformUpdates) {
    HostGraph host;
    host.play();
    HostSound next;
    next.format = host.sound.format;
    const AURenderCallbackStruct callback = next.callback();
    ASSERT_EQ(AUGraphSetNodeInputCallback(host.graph(), host.output(), 0, &callback), 0);
    pump(1);
    ASSERT_EQ(next.calls, 0) << "not before the update";
    int before = 0;
    platform.watch("AUGraphUpdate", [&](const auto&) {
        before = host.sound.calls;
        EXPECT_EQ(host.object()->originCallback().inputProcRefCon, &next);
        TQManualDevicePump(kFrames, hostTime);
    });
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    platform.watch("AUGraphUpdate", {});
    EXPECT_EQ(next.calls, 1);
    EXPECT_EQ(host.sound.calls, before) << "the old one has had its last slice";
    host.dispose();
}

}  // namespace
