#include <sys/wait.h>
#include <unistd.h>

#include "CapturePathFixture.h"
#include "Event.h"
#include "RZReplayVolumeController.h"

// The capture switch, what the system's notices do to it, and units that come and go meanwhile.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* kInterruption = "-[RZStreamMixManager onAudioInterruption:]";
constexpr const char* kUnitTaken = "-[RZStreamMixManager onAudioUnitNewRegistered:]";
constexpr const char* kGraphTaken = "-[RZStreamMixManager onAuGraphNewRegistered:]";

void post(const char* name, NSUserInfo info = {}) {
    NSNotificationCenter::defaultCenter().postNotificationName(name, nullptr, std::move(info));
}

struct CaptureState : CapturePath {
    /// Posts and waits for the work on the manager's queue.
    static void postInterruption(NSUserInfo info) {
        const dispatch_queue_t queue = manager().getAsyncQueue();
        post("AVAudioSessionInterruptionNotification", std::move(info));
        dispatch_sync(queue, [] {});
    }
    static void interrupt(long type) {
        postInterruption({{"AVAudioSessionInterruptionTypeKey", type}});
    }
    static void beginInterruption() { interrupt(1); }
    static void endInterruption() { interrupt(0); }
    static void enterBackground() { post("UIApplicationDidEnterBackgroundNotification"); }
    static void expectState(bool capturing, bool pending, bool interrupting, bool broken = false) {
        EXPECT_EQ(manager().isCapturing(), capturing);
        EXPECT_EQ(manager().isPendingStartCapturing(), pending);
        EXPECT_EQ(manager().isCurrentInterrupting(), interrupting);
        EXPECT_EQ(manager().lastStopError(), broken);
    }
};

TEST_F(CaptureState, IsIdleAtFirstCapturingAfterAStartAndIdleAgainAfterTheStop) {
    expectState(false, false, false);
    EXPECT_TRUE(startCapture());
    expectState(true, false, false);
    stopCapture();
    expectState(false, false, false);
    EXPECT_TRUE(startCapture()) << "as often as one likes";
}

TEST_F(CaptureState, ASecondStartWhileCapturingAnswersYesAndBuildsNothing) {
    ASSERT_TRUE(startCapture());
    platform.clear();
    EXPECT_TRUE(manager().startCapture());
    EXPECT_EQ(platform.count("NewAUGraph"), 0U);
    EXPECT_THAT(listener->events(), SizeIs(1));
    EXPECT_EQ(logs->count("[mix] start capture, isCurrentInterrupting: 0, isCapturing: 1"), 1U);
}

TEST_F(CaptureState, AnInterruptionStopsCaptureAndItsEndStartsItAgain) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    listener->clear();
    const dispatch_queue_t first = manager().getAsyncQueue();
    beginInterruption();
    expectState(false, true, true);
    EXPECT_FALSE(manager().isResamplerInit());
    EXPECT_FALSE(host.object()->isCapturing());
    endInterruption();
    expectState(true, false, false);
    EXPECT_TRUE(host.object()->isCapturing());
    ASSERT_THAT(listener->events(), SizeIs(1));
    EXPECT_EQ(listener->events()[0].code, 0U);
    EXPECT_THAT(logs->linesOf(kInterruption),
                ElementsAre(IsLogLine(kManagerFile, kInterruption, 3, "[mix] Interruption beging"),
                            IsLogLine(kManagerFile, kInterruption, 3, "[mix] Interruption end")));
    EXPECT_EQ(manager().queue(), nullptr) << "dropped after the restart";
    EXPECT_NE(manager().getAsyncQueue(), first);
    EXPECT_STREQ(dispatch_queue_get_label(manager().getAsyncQueue()), "TQAudioRecordMixManager");
    pump(3);
    EXPECT_THAT(listener->mixes(), SizeIs(3));
    beginInterruption();
    endInterruption();
    expectState(true, false, false);
}

/// Notices that come while the manager's queue is at work: what they ask for happens behind them.
struct BusyQueue : CaptureState {
    template <class Body>
    void whileBusy(Body body) {
        const dispatch_queue_t queue = manager().getAsyncQueue();
        Gate gate;
        dispatch_async(queue, [&gate] { gate.enterAndWait(); });
        gate.waitUntilEntered();
        body();
        gate.open();
        dispatch_sync(queue, [] {});
    }
    void postWhileBusy(std::initializer_list<long> types) {
        whileBusy([&] {
            for (const long type : types) {
                post("AVAudioSessionInterruptionNotification",
                     {{"AVAudioSessionInterruptionTypeKey", type}});
            }
        });
    }
};

TEST_F(BusyQueue, AnInterruptionWhoseEndFollowsAtOnceRestartsCaptureAndTellsIt) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    for (int i = 0; i < 20; ++i) {
        listener->clear();
        postWhileBusy({1, 0});
        expectState(true, false, false);
        EXPECT_TRUE(host.object()->isCapturing());
        ASSERT_THAT(listener->events(), SizeIs(1));
        EXPECT_EQ(listener->events()[0].category, 0U);
        EXPECT_EQ(listener->events()[0].code, 0U);
        pump(3);
        EXPECT_THAT(listener->mixes(), SizeIs(3));
    }
}

TEST_F(BusyQueue, SeveralInterruptionsAtOnceEndWithCaptureOn) {
    ASSERT_TRUE(startCapture());
    postWhileBusy({1, 0, 1, 0, 1, 0});
    expectState(true, false, false);
}

TEST_F(BusyQueue, AnInterruptionThatFollowsAtOnceWaitsForItsOwnEnd) {
    ASSERT_TRUE(startCapture());
    postWhileBusy({1, 0, 1});
    expectState(false, true, true);
    endInterruption();
    expectState(true, false, false);
}

TEST_F(BusyQueue, TheBackgroundIsNoEndAlsoWhenItFollowsAtOnce) {
    ASSERT_TRUE(startCapture());
    whileBusy([] {
        post("AVAudioSessionInterruptionNotification", {{"AVAudioSessionInterruptionTypeKey", 1L}});
        enterBackground();
    });
    expectState(false, true, false);
}

TEST_F(CaptureState, AForkedChildIsNotInItsParentsInterruption) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer ends children of programs with threads";
#endif
    beginInterruption();
    const pid_t child = fork();
    if (child == 0) {
        _exit(manager().isCurrentInterrupting() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(manager().isCurrentInterrupting());
}

TEST_F(CaptureState, AStartDuringAnInterruptionWaitsForItsEnd) {
    beginInterruption();
    expectState(false, false, true);
    platform.clear();
    EXPECT_FALSE(startCapture());
    expectState(false, true, true);
    EXPECT_TRUE(manager().startCapture()) << "it answers YES all the same";
    EXPECT_EQ(platform.count("NewAUGraph"), 0U);
    EXPECT_THAT(listener->events(), IsEmpty());
    EXPECT_EQ(logs->count("[mix] start capture, isCurrentInterrupting: 1, isCapturing: 0"), 2U);
    endInterruption();
    expectState(true, false, false);
}

TEST_F(CaptureState, AStopDuringAnInterruptionCancelsTheRestart) {
    ASSERT_TRUE(startCapture());
    beginInterruption();
    stopCapture();
    expectState(false, false, true);
    endInterruption();
    expectState(false, false, false);
}

TEST_F(CaptureState, AnInterruptionWhileIdleLeavesItIdle) {
    beginInterruption();
    expectState(false, false, true);
    endInterruption();
    expectState(false, false, false);
}

TEST_F(CaptureState, AnEndWithoutABeginningChangesNothing) {
    ASSERT_TRUE(startCapture());
    endInterruption();
    expectState(true, false, false);
}

TEST_F(CaptureState, AnotherInterruptionTypeChangesNothing) {
    ASSERT_TRUE(startCapture());
    interrupt(2);
    interrupt(-1);
    expectState(true, false, false);
    EXPECT_THAT(logs->linesOf(kInterruption), IsEmpty());
}

TEST_F(CaptureState, AnInterruptionNoteWithoutATypeReadsAsItsEnd) {
    ASSERT_TRUE(startCapture());
    beginInterruption();
    expectState(false, true, true);
    postInterruption({});
    expectState(true, false, false);
}

TEST_F(CaptureState, TheBackgroundEndsTheInterruptionAndKeepsThePendingStart) {
    ASSERT_TRUE(startCapture());
    beginInterruption();
    enterBackground();
    expectState(false, true, false);
    EXPECT_TRUE(manager().startCapture());
    expectState(true, false, false);
}

TEST_F(CaptureState, TheBackgroundAloneStopsNothing) {
    ASSERT_TRUE(startCapture());
    enterBackground();
    expectState(true, false, false);
}

TEST_F(CaptureState, ABrokenStateOutlivesInterruptions) {
    ASSERT_TRUE(startCapture());
    platform.fail("AUGraphStop", -1);
    beginInterruption();
    platform.heal();
    expectState(false, true, true, true);
    listener->clear();
    endInterruption();
    expectState(false, false, false, true);
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 102, "[mix] has stop error")));
}

TEST_F(CaptureState, ManyStartsAndStopsInARowEndInTheLastState) {
    for (int i = 0; i < 20; ++i) {
        collect().startAudioStreamCollect(listener);
        collect().stopAudioStreamCollect(listener);
    }
    drainRecorder();
    expectState(false, false, false);
    EXPECT_EQ(platform.count("NewAUGraph"), platform.count("DisposeAUGraph"));
}

// Take-over by the companion.

TEST_F(CaptureState, AUnitThatTheCompanionTakesOverIsStopped) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    resolver().registerRTCUsedAudioUnit(host.unit());
    EXPECT_FALSE(host.object()->isCapturing());
    EXPECT_THAT(logs->linesOf(kUnitTaken),
                ElementsAre(IsLogLine(kManagerFile, kUnitTaken, 2,
                                      "[mix]Force stop audio unit:" + pointerText(host.unit()) +
                                          " resample, trackid:1")));
    logs->clear();
    host.start();
    EXPECT_FALSE(host.object()->isCapturing()) << "and not taken back";
    EXPECT_EQ(logs->count("the exist audio unit:" + pointerText(host.unit())), 1U);
    host.uninitialize();
    EXPECT_FALSE(resolver().existAudioUnit(host.unit())) << "forgotten with its object";
}

TEST_F(CaptureState, AUnitTakenOverBeforeCaptureStartsIsLeftOut) {
    HostUnit taken;
    HostUnit kept;
    taken.play();
    kept.play();
    resolver().registerRTCUsedAudioUnit(taken.unit());
    EXPECT_THAT(logs->linesOf(kUnitTaken), IsEmpty());
    EXPECT_TRUE(taken.object()->isStarted()) << "only a capturing one is stopped";
    ASSERT_TRUE(startCapture());
    EXPECT_FALSE(taken.object()->isCapturing());
    EXPECT_TRUE(kept.object()->isCapturing());
}

TEST_F(CaptureState, AGraphThatTheCompanionTakesOverIsStopped) {
    HostGraph host;
    host.play();
    ASSERT_TRUE(startCapture());
    resolver().registerNonGameUsedAuGraph(host.graph());
    EXPECT_FALSE(host.object()->isCapturing());
    EXPECT_FALSE(host.object()->isStarted());
    EXPECT_THAT(logs->linesOf(kGraphTaken),
                ElementsAre(IsLogLine(kManagerFile, kGraphTaken, 2,
                                      "[mix]Force stop audio unit:" + pointerText(host.graph()) +
                                          " resample, trackid:1")));
    resolver().unregisterNonGameUsedAuGraph(host.graph());
}

TEST_F(CaptureState, AnUnknownUnitOrGraphThatIsTakenOverChangesNothing) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    resolver().registerRTCUsedAudioUnit(reinterpret_cast<AudioUnit>(this));
    AUGraph other = nullptr;
    ASSERT_EQ(NewAUGraph(&other), 0);
    resolver().registerNonGameUsedAuGraph(other);
    EXPECT_TRUE(host.object()->isCapturing());
    DisposeAUGraph(other);
}

TEST_F(CaptureState, ATakeOverNoticeWithoutAKeyIsLogged) {
    post("TQAudioNewRegisterAudioUnitNotification");
    post("TQAudioNewRegisterAudioUnitNotification",
         {{"TQAudioNewRegisteredObject", std::string()}});
    post("TQAudioNewRegisterAuGraphNotification", {{"TQAudioNewRegisteredObject", 5L}});
    constexpr const char* kText = "[mix]Error to get new registered audio unit";
    EXPECT_THAT(logs->linesOf(kUnitTaken),
                ElementsAre(IsLogLine(kManagerFile, kUnitTaken, 4, kText),
                            IsLogLine(kManagerFile, kUnitTaken, 4, kText)));
    EXPECT_THAT(logs->linesOf(kGraphTaken),
                ElementsAre(IsLogLine(kManagerFile, kGraphTaken, 4, kText)));
}

// Units that come and go.

TEST_F(CaptureState, UnitsStartedBeforeAndDuringCaptureBothArrive) {
    HostUnit before;
    before.sound.value = 0.125;
    before.play();
    ASSERT_TRUE(startCapture());
    HostUnit during;
    during.sound.value = 0.25;
    during.play();
    pump(6);
    const auto mixes = listener->mixes();
    ASSERT_FALSE(mixes.empty());
    EXPECT_NEAR(mixes.back().samples()[200], 0.375 * 32767, 4);
    during.stop();
    pump(20);
    EXPECT_NEAR(listener->mixes().back().samples()[200], 0.125 * 32767, 4);
    during.start();
    pump(20);
    EXPECT_NEAR(listener->mixes().back().samples()[200], 0.375 * 32767, 4);
    before.dispose();
    pump(20);
    EXPECT_NEAR(listener->mixes().back().samples()[200], 0.25 * 32767, 4);
}

TEST_F(CaptureState, AUnitThatIsStoppedIsNotCapturedByAStart) {
    HostUnit host;
    host.prepare();
    ASSERT_TRUE(startCapture());
    EXPECT_FALSE(host.object()->isCapturing());
    constexpr const char* kEligible = "-[RZStreamMixManager isUnitObjCanStartCapture:]";
    EXPECT_THAT(logs->linesOf(kEligible),
                Contains(IsLogLine(kManagerFile, kEligible, 4, "status isStarted:0, isCapture:0")));
    const std::string unit = pointerText(host.unit());
    EXPECT_THAT(listener->events(),
                ElementsAre(event(
                    0, 0, "[{key: " + unit + ", unit: " + unit + ", capture: 0, starte: 0},]")));
}

TEST_F(CaptureState, AStartWhileCaptureIsOffTouchesNoGraph) {
    ASSERT_TRUE(startCapture());
    stopCapture();
    ASSERT_TRUE(collect().startAudioStreamCollect(listener));
    drainRecorder();
    manager().stopCapture();
    listener->clear();
    platform.clear();
    HostUnit host;
    host.play();
    EXPECT_THAT(listener->events(), ElementsAre(event(6, 0, "audio unit start: 1")));
    EXPECT_EQ(platform.count("AUGraphSetNodeInputCallback"), 0U);
    EXPECT_EQ(platform.count("AUGraphUpdate"), 0U);
}

TEST_F(CaptureState, SevenUnitsMixAndTheEighthIsLeftAlone) {
    HostUnit hosts[8];
    for (HostUnit& host : hosts) {
        host.sound.value = 0.0625;
        host.play();
    }
    ASSERT_TRUE(startCapture());
    pump(8);
    EXPECT_NEAR(listener->mixes().back().samples()[0], 7 * 0.0625 * 32767, 8);
    EXPECT_EQ(hosts[7].sound.calls, 8);
    hosts[0].dispose();
    HostUnit next;
    EXPECT_EQ(next.object()->trackId(), 1) << "track 1 is free again";
}

TEST_F(CaptureState, TrackNumbersAreReleasedByTheNumberNotByItsBit) {
    HostUnit hosts[3];
    hosts[2].dispose();
    EXPECT_EQ(manager().trackId(), 0b100) << "track 3 stays taken, 1 and 2 are free in the set";
    HostUnit again;
    EXPECT_EQ(again.object()->trackId(), 1);
    EXPECT_EQ(hosts[0].object()->trackId(), 1) << "two of them at once";
}

TEST_F(CaptureState, TwoUnitsOfOneTrackAreSurvived) {
    HostUnit hosts[3];
    hosts[0].play();
    hosts[1].play();
    hosts[2].dispose();
    HostUnit again;
    again.play();
    ASSERT_TRUE(startCapture());
    pump(10);
    EXPECT_THAT(listener->mixes(), Not(IsEmpty()));
    hosts[0].stop();
    again.stop();
    pump(2);
    again.dispose();
    hosts[0].dispose();
    pump(2);
    stopCapture();
    EXPECT_FALSE(manager().isCapturing());
}

TEST_F(CaptureState, ANumberGivenTwiceDoesNotKeepTheNextStartFromWorking) {
    HostUnit hosts[3];
    hosts[0].play();
    hosts[1].play();
    hosts[2].dispose();
    HostUnit again;
    again.play();
    ASSERT_EQ(again.object()->trackId(), hosts[0].object()->trackId());
    ASSERT_TRUE(startCapture());
    pump(4);
    stopCapture();
    EXPECT_FALSE(manager().isCapturing());
    const std::size_t before = listener->mixes().size();
    ASSERT_TRUE(startCapture());
    pump(4);
    EXPECT_GT(listener->mixes().size(), before);
}

TEST_F(CaptureState, UnitsThatComeAndGoManyTimesLeaveNothingBehind) {
    ASSERT_TRUE(startCapture());
    for (int i = 0; i < 30; ++i) {
        HostUnit host;
        host.play();
        EXPECT_EQ(host.object()->trackId(), 1);
        EXPECT_TRUE(host.object()->isCapturing());
        pump(1);
        host.stop();
        host.start();
        pump(1);
    }
    EXPECT_THAT(manager().getUnitObjListWithCopy(), IsEmpty());
    EXPECT_EQ(manager().trackId(), 0);
    // What the last one has left is still heard.
    pump(4);
    EXPECT_TRUE(listener->mixes().back().isSilent());
}

TEST_F(CaptureState, NewUnitsGetTheDuckingThatIsOn) {
    RZReplayVolumeController controller;
    const RZReplayVolumeDuckingParam on(YES);
    ASSERT_EQ(controller.enableDucking(&on), 0);
    EXPECT_TRUE(manager().isDuckingEnable());
    EXPECT_EQ(logs->count("[mix] enable ducking: 1"), 1U);
    HostUnit host;
    host.play();
    pump(1);
    controller.updateDuckingVolume(0, YES);
    pump(100);
    ASSERT_TRUE(startCapture());
    pump(5);
    EXPECT_LT(listener->posts().back().samples()[0], 4000);
    const RZReplayVolumeDuckingParam off(NO);
    EXPECT_EQ(controller.enableDucking(&off), 0);
    EXPECT_EQ(logs->count("[mix] enable ducking: 0"), 1U);
    pump(5);
    EXPECT_EQ(listener->posts().back().samples()[0], 8192);
}

TEST_F(CaptureState, AUnitThatComesBehindALevelDoesNotGetIt) {
    RZReplayVolumeController controller;
    const RZReplayVolumeDuckingParam on(YES);
    ASSERT_EQ(controller.enableDucking(&on), 0);
    controller.updateDuckingVolume(0, YES);
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    pump(100);
    EXPECT_EQ(listener->posts().back().samples()[0], 8192);
    controller.updateDuckingVolume(0, YES);
    pump(100);
    EXPECT_LT(listener->posts().back().samples()[0], 4000);
    const RZReplayVolumeDuckingParam off(NO);
    EXPECT_EQ(controller.enableDucking(&off), 0);
}

}  // namespace
