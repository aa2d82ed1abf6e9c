#include "CapturePathFixture.h"
#include "RZHookSet.h"
#include "RZReplayAudioUnitGraphCapturer.h"

// What the intercepted graph functions do with each call of a host.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kAdd = "Record_graph_AUGraphAddNode";
constexpr const char* kRemove = "Record_graph_AUGraphRemoveNode";
constexpr const char* kOpen = "Record_graph_AUGraphOpen";
constexpr const char* kStart = "Record_graph_AUGraphStart";
constexpr const char* kUpdate = "Record_graph_AUGraphUpdate";
constexpr const char* kStop = "Record_graph_AUGraphStop";
constexpr const char* kClose = "Record_graph_AUGraphClose";
constexpr const char* kDispose = "Record_graph_DisposeAUGraph";

auto graphLine(const char* function, int level, const std::string& message) {
    return IsLogLine(kGraphHookFile, function, level, message);
}

std::size_t registered() {
    return RZStreamMixManager::sharedManager()->getUnitObjListWithCopy().size();
}

using GraphHooks = CapturePath;

TEST_F(GraphHooks, AnOutputNodeIsRememberedWhenItIsAdded) {
    HostGraph host;
    const AUNode node = host.addOutput();
    const std::string which = pointerText(host.graph()) + ", " + std::to_string(node);
    EXPECT_THAT(
        logs->linesOf(kAdd),
        ElementsAre(graphLine(kAdd, 2, "[AUGraphHook] AUGraphAddNode: " + which + ", err: 0"),
                    graphLine(kAdd, 2, "[AUGraphHook] Catch Node when Added: " + which)));
    EXPECT_EQ(registered(), 0U) << "its unit does not exist yet";
}

TEST_F(GraphHooks, AMixerNodeIsNeverTracked) {
    HostGraph host;
    host.addMixer();
    EXPECT_THAT(logs->linesOf(kAdd), SizeIs(1));
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_THAT(
        logs->linesOf(kOpen),
        ElementsAre(
            graphLine(kOpen, 2,
                      "[AUGraphHook] AUGraphOpen: " + pointerText(host.graph()) + ", err: 0"),
            graphLine(kOpen, 3,
                      "[AUGraphHook] No valid node in AUGraph: " + pointerText(host.graph()) +
                          " error:0")));
    EXPECT_EQ(registered(), 0U);
}

TEST_F(GraphHooks, AFailedAddOrOneWithoutAPlaceIsNotTracked) {
    HostGraph host;
    platform.fail("AUGraphAddNode", -10862);
    const AudioComponentDescription desc{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                         kAudioUnitManufacturer_Apple, 0, 0};
    EXPECT_EQ(AUGraphAddNode(host.graph(), &desc, nullptr), -10862);
    EXPECT_THAT(logs->linesOf(kAdd),
                ElementsAre(graphLine(kAdd, 2,
                                      "[AUGraphHook] AUGraphAddNode: " + pointerText(host.graph()) +
                                          ", -1, err: -10862")));
    platform.heal();
    EXPECT_NE(AUGraphAddNode(host.graph(), nullptr, nullptr), 0);
}

TEST_F(GraphHooks, OpeningMakesTheCaptureObjectOfTheOutputNode) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    const auto obj = host.object();
    ASSERT_TRUE(obj);
    EXPECT_EQ(obj->inUnit(), host.unitOf(node));
    EXPECT_EQ(obj->auGraph(), host.graph());
    EXPECT_EQ(obj->inNode(), node);
    EXPECT_EQ(obj->origin_inputProc(), nullptr);
    EXPECT_EQ(manager().findAudioUnitObj(host.unitOf(node)), obj);
}

TEST_F(GraphHooks, OfTwoOutputNodesTheOneAddedLastIsTracked) {
    HostGraph host;
    const AUNode first = host.addOutput();
    // The platform refuses a second output node, so the first one goes in between unseen.
    RZReplayAudioUnitGraphCapturer::enableHook(NO);
    ASSERT_EQ(AUGraphRemoveNode(host.graph(), first), 0);
    RZReplayAudioUnitGraphCapturer::enableHook(YES);
    const AUNode second = host.addOutput();
    ASSERT_NE(first, second);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_EQ(host.object()->inNode(), second);
    EXPECT_EQ(registered(), 1U);
}

TEST_F(GraphHooks, ARemovedNodeIsForgotten) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(AUGraphRemoveNode(host.graph(), node), 0);
    EXPECT_THAT(
        logs->linesOf(kRemove),
        ElementsAre(graphLine(kRemove, 2,
                              "[AUGraphHook] AUGraphRemoveNode: " + pointerText(host.graph()) +
                                  ", " + std::to_string(node) + ", err: ")));
    AUGraphOpen(host.graph());
    EXPECT_EQ(registered(), 0U);
    EXPECT_EQ(logs->count("[AUGraphHook] No valid node in AUGraph: " + pointerText(host.graph()) +
                          " error:0"),
              1U);
}

TEST_F(GraphHooks, ANodeThatCouldNotBeRemovedOrAnotherOneKeepsTheTrackedOne) {
    HostGraph host;
    const AUNode node = host.addOutput();
    const AUNode mixer = host.addMixer();
    ASSERT_EQ(AUGraphRemoveNode(host.graph(), mixer), 0);
    platform.fail("AUGraphRemoveNode", -1);
    EXPECT_EQ(AUGraphRemoveNode(host.graph(), node), -1);
    platform.heal();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_NE(host.object(), nullptr);
}

TEST_F(GraphHooks, RemovingTheNodeOfAnOpenGraphKeepsItsCaptureObject) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    ASSERT_EQ(AUGraphRemoveNode(host.graph(), node), 0);
    EXPECT_NE(host.object(), nullptr);
}

TEST_F(GraphHooks, AGraphThatDoesNotOpenGetsNoCaptureObject) {
    HostGraph host;
    host.addOutput();
    platform.fail("AUGraphOpen", -10875);
    EXPECT_EQ(AUGraphOpen(host.graph()), -10875);
    EXPECT_THAT(logs->linesOf(kOpen),
                ElementsAre(graphLine(
                    kOpen, 2,
                    "[AUGraphHook] AUGraphOpen: " + pointerText(host.graph()) + ", err: -10875")));
    EXPECT_EQ(registered(), 0U);
}

TEST_F(GraphHooks, ANodeWithoutInformationIsLoggedAndGetsNoCaptureObject) {
    HostGraph host;
    host.addOutput();
    platform.fail("AUGraphNodeInfo", -10860);
    EXPECT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_THAT(logs->linesOf(kOpen),
                Contains(graphLine(kOpen, 4,
                                   "[AUGraphHook] get node info: " + pointerText(host.graph()) +
                                       " error:-10860")));
    EXPECT_EQ(registered(), 0U);
}

TEST_F(GraphHooks, TheCompanionsGraphsAreIgnored) {
    HostGraph host;
    resolver().registerNonGameUsedAuGraph(host.graph());
    const AUNode node = host.addOutput();
    const std::string which = pointerText(host.graph()) + ", " + std::to_string(node);
    EXPECT_THAT(
        logs->linesOf(kAdd),
        Contains(graphLine(kAdd, 3,
                           "[AUGraphHook] AUGraph exists in Resolver, ignore AUGraph: " + which)));
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_THAT(logs->linesOf(kOpen), SizeIs(1));
    AUGraphInitialize(host.graph());
    EXPECT_EQ(AUGraphStart(host.graph()), 0);
    EXPECT_THAT(logs->linesOf(kStart),
                Contains(graphLine(kStart, 3,
                                   "[AUGraphHook] Ignore AUGraph start because in resolver: " +
                                       pointerText(host.graph()))));
    EXPECT_EQ(registered(), 0U);
    resolver().unregisterNonGameUsedAuGraph(host.graph());
}

TEST_F(GraphHooks, AGraphTakenOverAfterItsNodeWasAddedGetsNoCaptureObject) {
    HostGraph host;
    host.addOutput();
    resolver().registerNonGameUsedAuGraph(host.graph());
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_EQ(registered(), 0U);
    resolver().unregisterNonGameUsedAuGraph(host.graph());
}

TEST_F(GraphHooks, AStartIsRecordedAfterThePlatformStarted) {
    HostGraph host;
    bool seen = false;
    platform.watch("AUGraphStart", [&](const auto&) {
        seen = true;
        EXPECT_FALSE(host.object()->isStarted());
    });
    host.play();
    EXPECT_TRUE(seen);
    EXPECT_TRUE(host.object()->isStarted());
    EXPECT_THAT(
        logs->linesOf(kStart),
        ElementsAre(graphLine(
            kStart, 2, "[AUGraphHook] AUGraphStart: " + pointerText(host.graph()) + ", err:0")));
    platform.watch("AUGraphStart", {});
}

TEST_F(GraphHooks, AStartThatFailedIsNotRecorded) {
    HostGraph host;
    host.addOutput();
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    const OSStatus status = AUGraphStart(host.graph());
    ASSERT_NE(status, 0) << "it is not initialised";
    EXPECT_FALSE(host.object()->isStarted());
    EXPECT_THAT(logs->linesOf(kStart),
                Contains(graphLine(kStart, 4,
                                   "[AUGraphHook] Ignore audio unit start with AUGraphStart: " +
                                       pointerText(host.graph()) +
                                       ", unitObj: " + pointerText(host.object().get()) +
                                       ", err: " + std::to_string(status))));
}

TEST_F(GraphHooks, UnknownGraphsAreNotedAndPassedOn) {
    HostGraph host;
    const std::string graph = pointerText(host.graph());
    const std::string none = pointerText(nullptr);
    const OSStatus started = AUGraphStart(host.graph());
    const OSStatus stopped = AUGraphStop(host.graph());
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    const OSStatus closed = AUGraphClose(host.graph());
    ASSERT_EQ(DisposeAUGraph(host.graph()), 0);
    const auto ignored = [&](const char* what, const char* with, OSStatus status) {
        return std::string("[AUGraphHook] Ignore audio unit ") + what + " with " + with + ": " +
               graph + ", unitObj: " + none + ", err: " + std::to_string(status);
    };
    EXPECT_THAT(logs->linesOf(kStart),
                Contains(graphLine(kStart, 4, ignored("start", "AUGraphStart", started))));
    EXPECT_THAT(logs->linesOf(kUpdate),
                ElementsAre(graphLine(kUpdate, 2, "[AUGraphHook] AUGraphUpdate: " + graph),
                            graphLine(kUpdate, 4, ignored("update", "AUGraphUpdate", 0))));
    EXPECT_THAT(logs->linesOf(kStop),
                ElementsAre(graphLine(kStop, 2,
                                      "[AUGraphHook] AUGraphStop: " + graph +
                                          ", err: " + std::to_string(stopped)),
                            graphLine(kStop, 3, ignored("stop", "AUGraphStop", stopped))));
    EXPECT_THAT(logs->linesOf(kClose),
                ElementsAre(graphLine(kClose, 2,
                                      "[AUGraphHook] AUGraphClose: " + graph +
                                          ", err: " + std::to_string(closed)),
                            graphLine(kClose, 3, ignored("stop", "AUGraphClose", closed))));
    EXPECT_THAT(
        logs->linesOf(kDispose),
        ElementsAre(graphLine(kDispose, 2, "[AUGraphHook] DisposeAUGraph: " + graph + ", err: 0"),
                    graphLine(kDispose, 3, ignored("stop", "DisposeAUGraph", 0))));
}

TEST_F(GraphHooks, AnUpdateReadsTheFormatOfAStartedGraphAnew) {
    HostGraph host;
    host.play();
    host.sound.format = stream_formats::floatInterleaved(44100, 1);
    host.setOutputFormat();
    ASSERT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_EQ(host.object()->streamDesc().mSampleRate, 44100);
    EXPECT_EQ(host.object()->streamDesc().mChannelsPerFrame, 1U);
}

TEST_F(GraphHooks, AFailedUpdateChangesNothing) {
    HostGraph host;
    host.play();
    const AudioStreamBasicDescription unread = stream_formats::floatInterleaved(44100, 1);
    host.object()->setStreamDesc(unread);
    logs->clear();
    platform.fail("AUGraphUpdate", -10863);
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), -10863);
    EXPECT_THAT(logs->lines(), SizeIs(1));
    EXPECT_EQ(host.object()->streamDesc().mSampleRate, 44100) << "not read anew";
}

TEST_F(GraphHooks, AStopIsRecordedWhateverThePlatformAnswers) {
    HostGraph host;
    host.play();
    platform.fail("AUGraphStop", -1);
    EXPECT_EQ(AUGraphStop(host.graph()), -1);
    EXPECT_FALSE(host.object()->isStarted());
    platform.heal();
    EXPECT_EQ(AUGraphStop(host.graph()), 0);
}

TEST_F(GraphHooks, ClosingAndDisposingEndTheCaptureObjectWhateverThePlatformAnswers) {
    HostGraph closed;
    closed.play();
    platform.fail("AUGraphClose", -2);
    EXPECT_EQ(AUGraphClose(closed.graph()), -2);
    EXPECT_EQ(closed.object(), nullptr);
    HostGraph disposed;
    disposed.play();
    platform.fail("DisposeAUGraph", -3);
    EXPECT_EQ(DisposeAUGraph(disposed.graph()), -3);
    EXPECT_EQ(disposed.object(), nullptr);
    EXPECT_EQ(registered(), 0U);
    platform.heal();
}

TEST_F(GraphHooks, ClosingWhileCapturingIsSafe) {
    HostGraph host;
    host.play();
    ASSERT_TRUE(startCapture());
    pump(3);
    EXPECT_EQ(AUGraphClose(host.graph()), 0);
    pump(3);
    EXPECT_EQ(registered(), 0U);
    EXPECT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_NE(host.object(), nullptr) << "the node is still known";
}

TEST_F(GraphHooks, EveryStatusOfThePlatformComesBack) {
    HostGraph host;
    for (const char* name : {"NewAUGraph", "AUGraphAddNode", "AUGraphOpen", "AUGraphStart",
                             "AUGraphUpdate", "AUGraphStop", "AUGraphClose", "DisposeAUGraph",
                             "AUGraphRemoveNode", "AUGraphSetNodeInputCallback"}) {
        platform.fail(name, -77);
    }
    AUGraph graph = nullptr;
    AUNode node = 0;
    const AudioComponentDescription desc{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                         kAudioUnitManufacturer_Apple, 0, 0};
    EXPECT_EQ(NewAUGraph(&graph), -77);
    EXPECT_EQ(AUGraphAddNode(host.graph(), &desc, &node), -77);
    EXPECT_EQ(host.setCallback(1), -77);
    EXPECT_EQ(AUGraphRemoveNode(host.graph(), 1), -77);
    EXPECT_EQ(AUGraphOpen(host.graph()), -77);
    EXPECT_EQ(AUGraphStart(host.graph()), -77);
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), -77);
    EXPECT_EQ(AUGraphStop(host.graph()), -77);
    EXPECT_EQ(AUGraphClose(host.graph()), -77);
    EXPECT_EQ(DisposeAUGraph(host.graph()), -77);
    platform.heal();
}

TEST_F(GraphHooks, NullAndStaleGraphsAnswerThePlatformsErrorsAndNeverCrash) {
    HostUnit bystander;  // outside any graph: a null graph must not find it
    bystander.play();
    EXPECT_EQ(NewAUGraph(nullptr), kAudio_ParamError);
    AUGraph stale = nullptr;
    ASSERT_EQ(NewAUGraph(&stale), 0);
    ASSERT_EQ(DisposeAUGraph(stale), 0);
    for (const AUGraph bad : {AUGraph{nullptr}, stale}) {
        EXPECT_NE(AUGraphAddNode(bad, nullptr, nullptr), 0);
        EXPECT_NE(AUGraphSetNodeInputCallback(bad, 1, 0, nullptr), 0);
        EXPECT_NE(AUGraphRemoveNode(bad, 1), 0);
        EXPECT_NE(AUGraphOpen(bad), 0);
        EXPECT_NE(AUGraphStart(bad), 0);
        EXPECT_NE(AUGraphUpdate(bad, nullptr), 0);
        EXPECT_NE(AUGraphStop(bad), 0);
        EXPECT_NE(AUGraphClose(bad), 0);
        EXPECT_NE(DisposeAUGraph(bad), 0);
    }
    EXPECT_TRUE(bystander.object()->isStarted());
}

TEST_F(GraphHooks, WithThePassThroughSwitchOffNothingIsLoggedAndNothingRecorded) {
    HostGraph known;
    known.play();
    RZReplayAudioUnitGraphCapturer::enableHook(NO);
    logs->clear();
    HostGraph host;
    const AUNode node = host.addOutput();
    EXPECT_EQ(host.setCallback(node), 0);
    EXPECT_EQ(AUGraphOpen(host.graph()), 0);
    EXPECT_EQ(AUGraphInitialize(host.graph()), 0);
    EXPECT_EQ(AUGraphStart(host.graph()), 0);
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    EXPECT_EQ(AUGraphStop(known.graph()), 0);
    EXPECT_EQ(AUGraphClose(known.graph()), 0);
    EXPECT_EQ(registered(), 1U);
    EXPECT_TRUE(known.object()->isStarted());
    EXPECT_THAT(logs->lines(), IsEmpty());
    known.dispose();
    RZReplayAudioUnitGraphCapturer::enableHook(YES);
}

/// The hooks are installed, with their own test, while the pass-through switch is off. Under ctest,
/// which runs each test in a process of its own: they are installed once.
struct GraphHooksSwitchedOff : CapturePath {
    void SetUp() override {
        RZReplayAudioUnitGraphCapturer::enableHook(NO);
        CapturePath::SetUp();
    }
    void TearDown() override {
        RZReplayAudioUnitGraphCapturer::enableHook(YES);
        CapturePath::TearDown();
    }
};

TEST_F(GraphHooksSwitchedOff, StillPassTheirSelfTest) {
    EXPECT_TRUE(collect().isHookSuccess());
}

TEST_F(GraphHooks, AUnitInsideAGraphWhoseMicrophoneIsOnIsNotCaptured) {
    HostGraph host;
    const AUNode node = host.addOutput();
    ASSERT_EQ(host.setCallback(node), 0);
    ASSERT_EQ(AUGraphOpen(host.graph()), 0);
    host.setOutputFormat();
    const UInt32 on = 1;
    ASSERT_EQ(AudioUnitSetProperty(host.unitOf(node), kAudioOutputUnitProperty_EnableIO,
                                   kAudioUnitScope_Input, 1, &on, sizeof on),
              0);
    ASSERT_EQ(AUGraphInitialize(host.graph()), 0);
    ASSERT_EQ(AUGraphStart(host.graph()), 0);
    ASSERT_TRUE(startCapture());
    EXPECT_TRUE(host.object()->isStarted());
    EXPECT_FALSE(host.object()->isCapturing());
}

TEST_F(GraphHooks, TheUnitsInsideAGraphPassTheUnitHooksAsWell) {
    HostGraph host;
    host.play();
    const AudioUnit unit = host.object()->inUnit();
    // A host that reaches into its graph.
    EXPECT_EQ(AudioOutputUnitStop(unit), 0);
    EXPECT_FALSE(host.object()->isStarted());
    EXPECT_EQ(AudioOutputUnitStart(unit), 0);
    EXPECT_TRUE(host.object()->isStarted());
}

}  // namespace
