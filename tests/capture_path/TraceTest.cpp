#include "Trace.h"
#include "TraceSegments.h"

#include <thread>

// The long traces, each the exact list of what happens on the capture path.

namespace {

using namespace trace;
using testing::ElementsAreArray;

/// One host plays on track 1.
class TraceTest : public Trace {
  protected:
    void SetUp() override {
        Trace::SetUp();
        const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                               kAudioUnitManufacturer_Apple, 0, 0};
        component = AudioComponentFindNext(nullptr, &wanted);
        name(component, "component");
        host.emplace();
        name(host->unit(), "unit");
        name(&host->sound, "sound");
        host->play();
        take();
    }
    void TearDown() override {
        platform.heal();
        host.reset();
        Trace::TearDown();
    }
    void startRecording() {
        collect().startAudioStreamCollect(events);
        drainRecorder();
        nameGraph();
    }
    void stopRecording() {
        collect().stopAudioStreamCollect(events);
        drainRecorder();
    }
    void nameGraph() {
        name(manager().mGraph(), "mGraph");
        name(manager().mixUnit(), "mixUnit");
    }
    static void post(const char* name, NSUserInfo info = {}) {
        NSNotificationCenter::defaultCenter().postNotificationName(name, nullptr, std::move(info));
    }
    static void interrupt(long type) {
        const dispatch_queue_t queue = manager().getAsyncQueue();
        post("AVAudioSessionInterruptionNotification",
             {{"AVAudioSessionInterruptionTypeKey", type}});
        dispatch_sync(queue, [] {});
    }

    AudioComponent component = nullptr;
    std::optional<HostUnit> host;
};

TEST_F(TraceTest, UnitFromItsCreationToItsStartWithoutCapture) {
    HostUnit second;
    name(second.unit(), "second");
    name(&second.sound, "reference");
    second.prepare();
    second.start();
    EXPECT_THAT(
        take(),
        ElementsAreArray(join(
            {{"log 2 Record_unit_AudioComponentInstanceNew [AudioUnitHook] "
              "AudioComponentInstanceNew: component, *",
              "call AudioComponentInstanceNew(component)",
              "call AudioComponentGetDescription(component)",
              "log 2 Record_unit_AudioComponentInstanceNew [AudioUnitHook] catch output audio "
              "unit: second",
              "log 2 -[RZStreamMixManager newAudioUnitObj:] [mix] newAudioUnitObj, key: second, "
              "ioUnit: second",
              "log 2 Record_unit_AudioUnitSetProperty [AudioUnitHook] AudioUnitSetProperty: "
              "second, 8, 1, 0",
              "call AudioUnitSetProperty(second, 8, 1, 0, 40)",
              "log 2 Record_unit_AudioUnitSetProperty [AudioUnitHook] AudioUnitSetProperty: "
              "second, 23, 1, 0",
              "log 1 Record_unit_AudioUnitSetProperty [AudioUnitHook] RZReplay override callback "
              "struct, origin refcon:reference, after:second",
              "call AudioUnitSetProperty(second, 23, 1, 0, 16)",
              "log 2 Record_unit_AudioOutputUnitStart [AudioUnitHook] AudioOutputUnitStart: "
              "second"},
             inspect("second", true),
             {"log 2 -[RZStreamMixManager audioUnitStart:] audio unit start: 2",
              "call AudioOutputUnitStart(second)"}})));
}

TEST_F(TraceTest, StartOfCaptureBuildsTheGraphConnectsAndStartsIt) {
    startRecording();
    EXPECT_THAT(take(), ElementsAreArray(
                            join({{"log 2 -[RZStreamCollectManager startAudioStreamCollect:] start "
                                   "stream obj:Trace::EventListener",
                                   "log 2 -[RZStreamCollectManager startAudioStreamCollect:] start "
                                   "record audio"},
                                  startOfCapture()})));
}

TEST_F(TraceTest, UnitStartsWhileCapturing) {
    startRecording();
    HostUnit second;
    name(second.unit(), "second");
    second.prepare();
    take();
    second.start();
    EXPECT_THAT(
        take(),
        ElementsAreArray(
            join({{"log 2 Record_unit_AudioOutputUnitStart [AudioUnitHook] AudioOutputUnitStart: "
                   "second"},
                  inspect("second", true),
                  report("2", "audioUnitStart:", "6/0", "audio unit start: 2"),
                  setInputCallback("2"),
                  setMixerProperty("8, 1, 2", "40"),
                  updateGraph(),
                  report("4", "audioUnitStart:", "1/0",
                         "[mix] resample update(au start) success, key: second, trackid: 2"),
                  {"call AudioOutputUnitStart(second)"}})));
}

TEST_F(TraceTest, UnitWithAMicrophoneStartsWhileCapturing) {
    startRecording();
    HostUnit talker;
    name(talker.unit(), "talker");
    talker.enableMicrophone();
    talker.prepare();
    take();
    talker.start();
    EXPECT_THAT(
        take(),
        ElementsAreArray(join(
            {{"log 2 Record_unit_AudioOutputUnitStart [AudioUnitHook] AudioOutputUnitStart: "
              "talker"},
             inspect("talker", true),
             report("2", "audioUnitStart:", "6/0", "audio unit start: 2"),
             {"log 4 -[RZStreamMixManager isUnitObjCanStartCapture:] [korva]this audiounit is rtc "
              "seamd. input_enableIO:1, audio unit:talker",
              "call AudioOutputUnitStart(talker)"}})));
}

TEST_F(TraceTest, UnitStopsWhileCapturing) {
    startRecording();
    take();
    host->stop();
    EXPECT_THAT(
        take(),
        ElementsAreArray(join(
            {{"log 2 Record_unit_AudioOutputUnitStop [AudioUnitHook] AudioOutputUnitStop:unit, "},
             stopOfUnit("unit", "1"),
             {"call AudioOutputUnitStop(unit)"}})));
}

TEST_F(TraceTest, UnitIsDisposedOfWhileCapturing) {
    startRecording();
    take();
    host->uninitialize();
    EXPECT_THAT(
        take(),
        ElementsAreArray(join(
            {{"log 2 Record_unit_AudioUnitUninitialize [AudioUnitHook] AudioUnitUninitialize: "
              "unit",
              "call AudioUnitSetProperty(unit, 23, 1, 0, 16)"},
             stopOfUnit("unit", "1"),
             {"log 2 -[RZStreamMixManager disposeAudioUnitObj:] [mix] disposeAudioUnitObj: unit, "
              "unit",
              "call AudioUnitUninitialize(unit)"}})));
}

TEST_F(TraceTest, InterruptionStopsCaptureAndItsEndStartsItAgain) {
    startRecording();
    take();
    interrupt(1);
    EXPECT_THAT(take(),
                ElementsAreArray(join(
                    {{"log 3 -[RZStreamMixManager onAudioInterruption:] [mix] Interruption beging",
                      kStopLine},
                     stopGraph(),
                     disconnectTrack(),
                     tearGraphDown()})));
    interrupt(0);
    nameGraph();
    EXPECT_THAT(take(),
                ElementsAreArray(join(
                    {{"log 3 -[RZStreamMixManager onAudioInterruption:] [mix] Interruption end"},
                     startOfCapture()})));
}

TEST_F(TraceTest, RouteChangeReadsEveryCapturedUnitWhenOneIsHeardThroughItsNotify) {
    startRecording();
    take();
    post("AVAudioSessionRouteChangeNotification");
    EXPECT_THAT(take(), testing::IsEmpty()) << "the callback's side does not change";

    HostUnit heard;
    name(heard.unit(), "heard");
    heard.prepare(kAudioUnitScope_Output);
    take();
    heard.start();
    EXPECT_THAT(
        take(),
        ElementsAreArray(
            join({{"log 2 Record_unit_AudioOutputUnitStart [AudioUnitHook] AudioOutputUnitStart: "
                   "heard"},
                  inspect("heard", false),
                  report("2", "audioUnitStart:", "6/0", "audio unit start: 2"),
                  setInputCallback("2"),
                  setMixerProperty("8, 1, 2", "40"),
                  updateGraph(),
                  report("4", "audioUnitStart:", "1/0",
                         "[mix] resample update(au start) success, key: heard, trackid: 2"),
                  {"call AudioOutputUnitStart(heard)"}})));
    post("AVAudioSessionRouteChangeNotification");
    EXPECT_THAT(take(), ElementsAreArray(join({{"call AudioUnitGetProperty(unit, 8, 2, 0)"},
                                               setMixerProperty("8, 1, 1", "40"),
                                               {"call AudioUnitGetProperty(heard, 8, 2, 0)"},
                                               setMixerProperty("8, 1, 2", "40"),
                                               updateGraph()})));
}

TEST_F(TraceTest, UnitThatTheCompanionTakesOverIsStopped) {
    startRecording();
    take();
    resolver().registerRTCUsedAudioUnit(host->unit());
    EXPECT_THAT(
        take(),
        ElementsAreArray(join({{"log 2 -[RZStreamMixManager onAudioUnitNewRegistered:] [mix]Force "
                                "stop audio unit:unit resample, trackid:1"},
                               stopOfUnit("unit", "1")})));
}

TEST_F(TraceTest, GraphThatTheCompanionTakesOverIsStopped) {
    host.reset();
    HostGraph graph;
    name(graph.graph(), "graph");
    graph.play();
    name(graph.unitOf(graph.output()), "node");
    startRecording();
    take();
    post("TQAudioNewRegisterAuGraphNotification",
         {{"TQAudioNewRegisteredObject", pointerText(graph.graph())}});
    EXPECT_THAT(take(), ElementsAreArray(
                            join({{"log 2 -[RZStreamMixManager onAuGraphNewRegistered:] [mix]Force "
                                   "stop audio unit:graph resample, trackid:1"},
                                  stopOfUnit("node", "1")})));
}

TEST_F(TraceTest, StopOfCaptureTakesTheGraphDown) {
    startRecording();
    take();
    stopRecording();
    EXPECT_THAT(take(),
                ElementsAreArray(join(
                    {{"log 2 -[RZStreamCollectManager stopAudioStreamCollect:] stop stream "
                      "obj:Trace::EventListener",
                      "log 2 -[RZStreamCollectManager stopAudioStreamCollect:] stop record audio",
                      kStopLine},
                     stopGraph(),
                     disconnectTrack(),
                     tearGraphDown()})));
}

TEST_F(TraceTest, StopThatFailsBarsTheNextStart) {
    startRecording();
    take();
    platform.fail("AUGraphStop", -50);
    manager().stopCapture();
    EXPECT_THAT(take(), ElementsAreArray(
                            join({{kStopLine},
                                  stopGraph("-50"),
                                  {"log 4 -[RZStreamMixManager stopResampleMix] AUGraphStop fail",
                                   "log 4 -[RZStreamMixManager stopResampleMix] -50"},
                                  report("1", "stopCapture", "4/102", "[mix] resample stop failed"),
                                  tearGraphDown()})));
    manager().startCapture();
    EXPECT_THAT(take(), ElementsAreArray(
                            join({{"log 2 -[RZStreamMixManager startCapture] [mix] start capture, "
                                   "isCurrentInterrupting: 0, isCapturing: 0"},
                                  report("4", "startCapture", "0/102", "[mix] has stop error")})));
}

TEST_F(TraceTest, TearingDownThatFailsIsReportedToo) {
    startRecording();
    take();
    platform.fail("AUGraphUninitialize", 0x666D743F);
    manager().stopCapture();
    EXPECT_THAT(
        take(),
        ElementsAreArray(
            join({{kStopLine},
                  stopGraph(),
                  disconnectTrack(),
                  {"call AUGraphUninitialize(mGraph)",
                   "log 4 -[RZStreamMixManager unInitializeResampleUnit] AUGraphUninitialize fail",
                   "log 4 -[RZStreamMixManager unInitializeResampleUnit] 'fmt?'"},
                  report("1", "stopCapture", "4/102", "[mix] resample uninitialize failed")})));
}

TEST_F(TraceTest, GraphIsOpenedAfterItsCallbackWasSet) {
    HostGraph graph;
    name(graph.graph(), "graph");
    name(&graph.sound, "reference");
    take();
    const AUNode node = graph.addOutput();
    graph.setCallback(node);
    AUGraphOpen(graph.graph());
    name(graph.unitOf(node), "node");
    Lines lines = take();
    lines.pop_back();  // the test's own question
    EXPECT_THAT(
        lines,
        ElementsAreArray(Lines{
            "call AUGraphAddNode(graph)",
            "log 2 Record_graph_AUGraphAddNode [AUGraphHook] AUGraphAddNode: graph, 1, err: 0",
            "log 2 Record_graph_AUGraphAddNode [AUGraphHook] Catch Node when Added: graph, 1",
            "call AUGraphSetNodeInputCallback(graph, 1, 0)",
            "log 2 Record_graph_AUGraphSetNodeInputCallback [AUGraphHook] "
            "AUGraphSetNodeInputCallback: graph, 1, 0, *, err:0",
            "call AUGraphOpen(graph)",
            "log 2 Record_graph_AUGraphOpen [AUGraphHook] AUGraphOpen: graph, err: 0",
            "call AUGraphNodeInfo(graph, 1)",
            "log 2 -[RZStreamMixManager newAudioUnitObj:] [mix] newAudioUnitObj, key: node, "
            "ioUnit: node"}));
    ASSERT_TRUE(graph.object());
    EXPECT_EQ(graph.object()->origin_inputProcRefCon(), &graph.sound);
}

TEST_F(TraceTest, UnitOfACommunicationThreadGoesToTheCompanion) {
    std::optional<HostUnit> engine;
    std::thread([&] {
        NSThread::setCurrentThreadName("MWAudioDeviceThread-1");
        engine.emplace();
    }).join();
    name(engine->unit(), "engine");
    engine->start();
    engine->uninitialize();
    EXPECT_THAT(
        take(),
        ElementsAreArray(Lines{
            "log 2 Record_unit_AudioComponentInstanceNew [AudioUnitHook] "
            "AudioComponentInstanceNew: component, *",
            "call AudioComponentInstanceNew(component)",
            "call AudioComponentGetDescription(component)",
            "log 2 Record_unit_AudioComponentInstanceNew [AudioUnitHook] catch output audio unit: "
            "engine",
            "log 2 Record_unit_AudioComponentInstanceNew [AudioUnitHook] audio unit is rtc audio "
            "unit: engine",
            "log 2 Record_unit_AudioOutputUnitStart [AudioUnitHook] AudioOutputUnitStart: engine",
            "log 3 Record_unit_AudioOutputUnitStart [AudioUnitHook] Ignore audio unit start, not "
            "found in unitMap: engine",
            "call AudioOutputUnitStart(engine)",
            "log 2 Record_unit_AudioUnitUninitialize [AudioUnitHook] AudioUnitUninitialize: engine",
            "call AudioUnitUninitialize(engine)"}));
}

}  // namespace
