#include <AudioToolbox/AudioSession.h>

#include "CapturePathFixture.h"

// One unit's start, change and stop while capture is on: every step that the platform may refuse.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStart = "-[RZStreamMixManager audioUnitStart:]";
constexpr const char* kStop = "-[RZStreamMixManager audioUnitStop:]";
constexpr const char* kUpdate = "-[RZStreamMixManager audioUnitUpdate:]";
constexpr const char* kInspect = "-[RZStreamMixManager updateAudioUnitObjectWithStart:]";
constexpr const char* kFormat = "-[RZStreamMixManager updateAudioUnitObjStreamFormat:]";
constexpr const char* kGraphUpdate = "-[RZStreamMixManager updateAUGraph]";
constexpr const char* kReformat =
    "-[RZStreamMixManager updateCapturingAudioUnitObjFormatToResampler]";

PlatformCalls::When busFormat(int track) {
    return PlatformCalls::property(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                   static_cast<AudioUnitElement>(track));
}

struct UnitWhileCapturing : CapturePath {
    void SetUp() override {
        CapturePath::SetUp();
        ASSERT_TRUE(startCapture());
        listener->clear();
    }
    [[nodiscard]] PlatformCalls::When privateGraph() const {
        return [](const PlatformCalls::Call& call) { return call.object == manager().mGraph(); };
    }
    /// What a start says before anything can fail.
    const RecordedEvent started = event(6, 0, "audio unit start: 1");
};

TEST_F(UnitWhileCapturing, StartingJoinsTheGraphAndSaysSo) {
    HostUnit host;
    host.play();
    const std::string success =
        "[mix] resample update(au start) success, key: " + pointerText(host.unit()) +
        ", trackid: 1";
    EXPECT_THAT(
        listener->events(),
        ElementsAre(started, event(1, 0, "[mix] AUGraph update success."), event(1, 0, success)));
    EXPECT_THAT(logs->linesOf(kStart),
                ElementsAre(IsLogLine(kManagerFile, kStart, 2, "audio unit start: 1"),
                            IsLogLine(kManagerFile, kStart, 4, success)));
    EXPECT_THAT(
        logs->linesOf(kGraphUpdate),
        ElementsAre(IsLogLine(kManagerFile, kGraphUpdate, 2, "[mix] AUGraph update success.")));
    EXPECT_TRUE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, ARefusedBusCallbackEndsTheStartWithTheUnitCapturing) {
    HostUnit host;
    host.prepare();
    platform.fail("AUGraphSetNodeInputCallback", -10861);
    host.start();
    const std::string text =
        "[mix] resample set input streamFormat fail, key: " + pointerText(host.unit()) +
        ", trackId: 1";
    EXPECT_THAT(listener->events(), ElementsAre(started, event(1, 100, text)));
    EXPECT_THAT(logs->linesOf(kStart), Contains(IsLogLine(kManagerFile, kStart, 4, text)));
    EXPECT_EQ(platform.count("AUGraphUpdate"), 0U);
    EXPECT_TRUE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, ARefusedBusFormatEndsTheStartWithTheUnitCapturing) {
    HostUnit host;
    host.prepare();
    platform.fail("AudioUnitSetProperty", -10868, busFormat(1));
    host.start();
    const std::string text =
        "[mix] resample set mix unit stream format fail, key: " + pointerText(host.unit()) +
        ", trackId: 1";
    EXPECT_THAT(listener->events(), ElementsAre(started, event(1, 100, text)));
    EXPECT_THAT(logs->linesOf(kStart), Contains(IsLogLine(kManagerFile, kStart, 4, text)));
    EXPECT_EQ(platform.count("AUGraphUpdate"), 0U);
    EXPECT_TRUE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, ARefusedGraphUpdateEndsTheStartWithoutTheSuccessEvent) {
    HostUnit host;
    host.prepare();
    platform.fail("AUGraphUpdate", -10877);
    host.start();
    EXPECT_THAT(listener->events(),
                ElementsAre(started, event(1, 104, "[mix] AUGraph update error")));
    EXPECT_THAT(logs->linesOf(kGraphUpdate), ElementsAre(IsLogLine(kManagerFile, kGraphUpdate, 4,
                                                                   "[mix] AUGraph update error")));
    EXPECT_TRUE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, APostponedGraphUpdateCountsAsSuccess) {
    HostUnit host;
    host.prepare();
    platform.fail("AUGraphUpdate", kAUGraphErr_CannotDoInCurrentContext);
    host.start();
    const std::string postponed = "[mix] AUGraph can not update in current context";
    EXPECT_THAT(listener->events(),
                ElementsAre(started, event(1, 105, postponed),
                            event(1, 0,
                                  "[mix] resample update(au start) success, key: " +
                                      pointerText(host.unit()) + ", trackid: 1")));
    EXPECT_THAT(logs->linesOf(kGraphUpdate),
                ElementsAre(IsLogLine(kManagerFile, kGraphUpdate, 3, postponed)));
}

TEST_F(UnitWhileCapturing, StoppingLeavesTheGraphAndSaysSo) {
    HostUnit host;
    host.play();
    listener->clear();
    logs->clear();
    EXPECT_EQ(host.stop(), 0);
    const std::string text =
        "[mix] resample update(au stop) success, key: " + pointerText(host.unit()) + " trackId: 1";
    EXPECT_THAT(listener->events(),
                ElementsAre(event(1, 0, "[mix] AUGraph update success."), event(1, 0, text)));
    EXPECT_THAT(logs->linesOf(kStop), ElementsAre(IsLogLine(kManagerFile, kStop, 4, text)));
    EXPECT_FALSE(host.object()->isStarted());
    EXPECT_FALSE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, ABusThatDoesNotDisconnectLeavesTheUnitStartedAndCapturing) {
    HostUnit host;
    host.play();
    listener->clear();
    logs->clear();
    platform.fail("AUGraphDisconnectNodeInput", -10860);
    EXPECT_EQ(host.stop(), 0);
    const std::string text =
        "[mix] Audio resample update disconnect unitObj, key: " + pointerText(host.unit()) +
        ", trackid: 1";
    EXPECT_THAT(listener->events(), ElementsAre(event(1, 100, text)));
    EXPECT_THAT(logs->linesOf(kStop), ElementsAre(IsLogLine(kManagerFile, kStop, 4, text)));
    EXPECT_TRUE(host.object()->isStarted());
    EXPECT_TRUE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, AStopWhoseGraphUpdateFailsRaisesThatAlone) {
    HostUnit host;
    host.play();
    listener->clear();
    platform.fail("AUGraphUpdate", -1);
    EXPECT_EQ(host.stop(), 0);
    EXPECT_THAT(listener->events(), ElementsAre(event(1, 104, "[mix] AUGraph update error")));
    EXPECT_FALSE(host.object()->isCapturing());
}

TEST_F(UnitWhileCapturing, AReconfiguredGraphGivesItsBusTheNewFormat) {
    HostGraph host;
    host.play();
    listener->clear();
    logs->clear();
    host.sound.format = stream_formats::floatInterleaved(22050, 2);
    host.setOutputFormat();
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    const std::string text = "[mix] resample set input streamFormat success, key: " +
                             pointerText(host.object()->inUnit()) + " trackId: 1";
    EXPECT_THAT(listener->events(), ElementsAre(event(1, 0, text)));
    EXPECT_THAT(logs->linesOf(kUpdate), ElementsAre(IsLogLine(kManagerFile, kUpdate, 4, text)));
    EXPECT_EQ(host.object()->streamDesc().mSampleRate, 22050);
    AudioStreamBasicDescription bus{};
    UInt32 size = sizeof(bus);
    ASSERT_EQ(AudioUnitGetProperty(manager().mixUnit(), kAudioUnitProperty_StreamFormat,
                                   kAudioUnitScope_Input, 1, &bus, &size),
              0);
    EXPECT_EQ(bus.mSampleRate, 22050);
    EXPECT_EQ(bus.mBitsPerChannel, 16U);
    EXPECT_EQ(bus.mBytesPerFrame, 4U);
    EXPECT_EQ(bus.mBytesPerPacket, 4U);
    EXPECT_EQ(bus.mFormatFlags & kAudioFormatFlagIsFloat, 0U);
    EXPECT_NE(bus.mFormatFlags & kAudioFormatFlagIsSignedInteger, 0U);
    EXPECT_TRUE(host.object()->needFormatToS16());
}

TEST_F(UnitWhileCapturing, ARefusedNewFormatOfAGraphIsRaised) {
    HostGraph host;
    host.play();
    listener->clear();
    logs->clear();
    platform.fail("AudioUnitSetProperty", -10868, busFormat(1));
    EXPECT_EQ(AUGraphUpdate(host.graph(), nullptr), 0);
    const std::string text =
        "[mix] resample set input streamFormat fail, key: " + pointerText(host.object()->inUnit()) +
        " trackId: 1";
    EXPECT_THAT(listener->events(), ElementsAre(event(1, 100, text)));
    EXPECT_THAT(logs->linesOf(kUpdate), ElementsAre(IsLogLine(kManagerFile, kUpdate, 4, text)));
}

using UnitStart = CapturePath;

TEST_F(UnitStart, WhoseMicrophoneSwitchCannotBeReadIsLogged) {
    HostUnit host;
    host.prepare();
    logs->clear();
    platform.fail(
        "AudioUnitGetProperty", -10879,
        PlatformCalls::property(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1));
    EXPECT_EQ(host.start(), 0);
    const auto lines = logs->linesOf(kInspect);
    ASSERT_THAT(lines, ElementsAre(IsLogLine(kManagerFile, kInspect, 4,
                                             "[mix] can not update enable_IO info when start"),
                                   IsLogLine(kManagerFile, kInspect, 4, "-10879")));
    EXPECT_EQ(lines[0].line, lines[1].line);
    EXPECT_TRUE(host.object()->isStarted());
    EXPECT_EQ(host.object()->streamDesc().mSampleRate, 0) << "the inspection ended there";
}

TEST_F(UnitStart, WhoseFormatCannotBeReadIsLoggedAndNotAvailable) {
    HostUnit host;
    host.prepare();
    logs->clear();
    platform.fail("AudioUnitGetProperty", 0x21736974, [&](const auto& call) {
        return call.object == host.unit() && call.numbers[0] == kAudioUnitProperty_StreamFormat;
    });
    EXPECT_EQ(host.start(), 0);
    const auto lines = logs->linesOf(kFormat);
    ASSERT_THAT(lines, ElementsAre(IsLogLine(kManagerFile, kFormat, 4,
                                             "[mix] can not update stream format info when start"),
                                   IsLogLine(kManagerFile, kFormat, 4, "'!sit'")));
    EXPECT_EQ(lines[0].line, lines[1].line);
    constexpr const char* kEligible = "-[RZStreamMixManager isUnitObjCanStartCapture:]";
    EXPECT_THAT(logs->linesOf(kEligible),
                ElementsAre(IsLogLine(kManagerFile, kEligible, 4,
                                      "data not available: " + pointerText(host.unit()))));
    EXPECT_EQ(platform.count("AudioUnitAddRenderNotify"), 0U);
    EXPECT_EQ(platform.count("AudioUnitRemoveRenderNotify"), 0U);
}

TEST_F(UnitStart, ReadsTheProgramsSideOfATakenOverUnitAndRemovesTheNotify) {
    HostUnit host;
    host.play();
    EXPECT_EQ(platform.count("AudioUnitGetProperty",
                             PlatformCalls::property(kAudioUnitProperty_StreamFormat,
                                                     kAudioUnitScope_Input, 0)),
              1U);
    EXPECT_EQ(platform.count("AudioUnitRemoveRenderNotify"), 1U);
    EXPECT_EQ(platform.count("AudioUnitAddRenderNotify"), 0U);
}

TEST_F(UnitStart, ReadsTheDevicesSideOfAnyOtherUnitAndAddsTheNotify) {
    HostUnit host;
    host.play(kAudioUnitScope_Output);
    EXPECT_EQ(platform.count("AudioUnitGetProperty",
                             PlatformCalls::property(kAudioUnitProperty_StreamFormat,
                                                     kAudioUnitScope_Output, 0)),
              1U);
    EXPECT_EQ(platform.count("AudioUnitAddRenderNotify"), 1U);
    EXPECT_EQ(platform.count("AudioUnitRemoveRenderNotify"), 0U);
}

TEST_F(UnitStart, OfAUnitWhoseMicrophoneIsOnIsNeverCaptured) {
    ASSERT_TRUE(startCapture());
    HostUnit host;
    ASSERT_EQ(host.enableMicrophone(), 0);
    logs->clear();
    host.play();
    EXPECT_TRUE(host.object()->input_enableIO());
    EXPECT_FALSE(host.object()->isCapturing());
    EXPECT_EQ(logs->count("[korva]this audiounit is rtc seamd. input_enableIO:1, audio unit:" +
                          pointerText(host.unit())),
              1U);
    EXPECT_THAT(listener->events(), Contains(event(6, 0, "audio unit start: 1")));
}

TEST_F(UnitStart, OfAnUnknownComponentIsNeverCaptured) {
    ASSERT_TRUE(startCapture());
    HostUnit host;
    host.prepare();
    platform.fail("AudioComponentInstanceGetComponent", -1);
    host.start();
    EXPECT_TRUE(host.object()->input_enableIO());
    EXPECT_FALSE(host.object()->isCapturing());
}

TEST_F(UnitStart, OfAGenericOutputUnitIgnoresTheMicrophone) {
    HostUnit host(kAudioUnitSubType_GenericOutput);
    host.prepare();
    EXPECT_EQ(host.start(), 0);
    EXPECT_FALSE(host.object()->input_enableIO());
    EXPECT_EQ(platform.count("AudioUnitGetProperty",
                             PlatformCalls::property(kAudioOutputUnitProperty_EnableIO,
                                                     kAudioUnitScope_Input, 1)),
              0U);
}

/// A route change re-reads the units that are captured through the render notify.
struct RouteChange : CapturePath {
    static void post() {
        NSNotificationCenter::defaultCenter().postNotificationName(
            "AVAudioSessionRouteChangeNotification");
    }
    [[nodiscard]] static PlatformCalls::When deviceSide(const HostUnit& host) {
        return [unit = host.unit()](const PlatformCalls::Call& call) {
            return call.object == unit && call.numbers[0] == kAudioUnitProperty_StreamFormat &&
                   call.numbers[1] == kAudioUnitScope_Output;
        };
    }
    static void setHardwareRate(Float64 rate) { ASSERT_EQ(TQManualDeviceSetSampleRate(rate), 0); }
    static void interrupt(long type) {
        NSNotificationCenter::defaultCenter().postNotificationName(
            "AVAudioSessionInterruptionNotification", nullptr,
            {{"AVAudioSessionInterruptionTypeKey", type}});
        dispatch_sync(manager().getAsyncQueue(), [] {});
    }
    /// A unit that renders at its device's side.
    struct DeviceSideUnit : HostUnit {
        DeviceSideUnit() {
            sound.format = stream_formats::int16Interleaved(48000, 2);
            play(kAudioUnitScope_Output);
        }
    };
    /// Its recording has its pitch and length.
    void expectRecordedAt32000() {
        pump(2, 320);
        listener->clear();
        pump(20, 320);
        std::size_t frames = 0;
        for (const CaptureListener::Block& block : listener->mixes()) {
            for (const std::int16_t sample : block.samples()) {
                EXPECT_NEAR(sample, 8192, 8);
            }
            frames += block.samples().size() / 2;
        }
        EXPECT_EQ(frames, 20U * 441);
        ASSERT_FALSE(listener->posts().empty());
        EXPECT_EQ(listener->posts().back().info.sampleRate(), 32000);
        setHardwareRate(48000);
    }
};

TEST_F(RouteChange, GivesTheBusTheKnownFormatAndThenTheFreshOne) {
    HostUnit host;
    host.play(kAudioUnitScope_Output);
    ASSERT_TRUE(startCapture());
    listener->clear();
    ASSERT_EQ(TQManualDeviceSetSampleRate(32000), 0);
    std::vector<double> rates;
    platform.watch("AudioUnitSetProperty", [&](const PlatformCalls::Call& call) {
        if (busFormat(1)(call)) {
            rates.push_back(host.object()->streamDesc().mSampleRate);
        }
    });
    post();
    platform.watch("AudioUnitSetProperty", {});
    EXPECT_THAT(rates, ElementsAre(48000, 32000)) << "what the bus is set from";
    AudioStreamBasicDescription bus{};
    UInt32 size = sizeof(bus);
    AudioUnitGetProperty(manager().mixUnit(), kAudioUnitProperty_StreamFormat,
                         kAudioUnitScope_Input, 1, &bus, &size);
    EXPECT_EQ(bus.mSampleRate, 32000);
    EXPECT_THAT(listener->events(), ElementsAre(event(1, 0, "[mix] AUGraph update success.")));
}

TEST_F(RouteChange, ThatChangesTheHardwareRateIsFollowedByTheRecording) {
    const DeviceSideUnit host;
    ASSERT_TRUE(startCapture());
    pump(4);
    setHardwareRate(32000);
    post();
    expectRecordedAt32000();
}

TEST_F(RouteChange, ComesWithARateThatTheProgramAsksForWhileItIsRecorded) {
    ASSERT_EQ(AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr), kAudioSessionNoError);
    const DeviceSideUnit host;
    ASSERT_TRUE(startCapture());
    pump(4);
    const Float64 rate = 32000;
    ASSERT_EQ(AudioSessionSetProperty(kAudioSessionProperty_PreferredHardwareSampleRate,
                                      sizeof rate, &rate),
              kAudioSessionNoError);
    expectRecordedAt32000();
}

TEST_F(RouteChange, WhileNobodyRecordsIsKnownToTheNextRecording) {
    const DeviceSideUnit host;
    setHardwareRate(32000);
    post();
    ASSERT_TRUE(startCapture());
    expectRecordedAt32000();
}

TEST_F(RouteChange, InAnInterruptionIsKnownToTheRecordingBehindIt) {
    const DeviceSideUnit host;
    ASSERT_TRUE(startCapture());
    pump(4);
    interrupt(1);
    setHardwareRate(32000);
    post();
    interrupt(0);
    ASSERT_TRUE(manager().isCapturing());
    expectRecordedAt32000();
}

TEST_F(RouteChange, WhoseFormatCannotBeReadIsRaisedAndTheGraphUpdatedAllTheSame) {
    HostUnit host;
    host.play(kAudioUnitScope_Output);
    ASSERT_TRUE(startCapture());
    listener->clear();
    platform.fail("AudioUnitGetProperty", -1, deviceSide(host));
    post();
    const std::string text =
        "[mix] can not get audio unit stream format: " + pointerText(host.unit());
    EXPECT_THAT(listener->events(),
                ElementsAre(event(1, 100, text), event(1, 0, "[mix] AUGraph update success.")));
    EXPECT_THAT(logs->linesOf(kReformat), ElementsAre(IsLogLine(kManagerFile, kReformat, 3, text)));
}

TEST_F(RouteChange, WhoseBusRefusesTheFormatIsRaisedAndKeepsTheKnownFormat) {
    HostUnit host;
    host.play(kAudioUnitScope_Output);
    ASSERT_TRUE(startCapture());
    listener->clear();
    ASSERT_EQ(TQManualDeviceSetSampleRate(32000), 0);
    platform.fail("AudioUnitSetProperty", -10868, busFormat(1));
    post();
    const std::string text =
        "[mix] can not set audio unit stream format: " + pointerText(host.unit());
    EXPECT_THAT(listener->events(),
                ElementsAre(event(1, 100, text), event(1, 0, "[mix] AUGraph update success.")));
    EXPECT_THAT(logs->linesOf(kReformat), ElementsAre(IsLogLine(kManagerFile, kReformat, 3, text)));
    EXPECT_EQ(host.object()->streamDesc().mSampleRate, 48000);
}

TEST_F(RouteChange, LeavesTakenOverUnitsWithTheirProgramsFormat) {
    HostUnit notified;
    HostUnit takenOver;
    takenOver.sound.value = 0.5;
    notified.play(kAudioUnitScope_Output);
    takenOver.play();
    notified.sound.value = 0;
    ASSERT_TRUE(startCapture());
    pump(4);
    listener->clear();
    post();
    EXPECT_EQ(takenOver.object()->streamDesc().mBitsPerChannel, 16U);
    pump(4);
    EXPECT_THAT(listener->events(), ElementsAre(event(1, 0, "[mix] AUGraph update success.")));
    for (const CaptureListener::Block& block : listener->mixes()) {
        EXPECT_NEAR(block.samples()[200], 16384, 4);
    }
}

TEST_F(RouteChange, WithTakenOverUnitsOnlyChangesNothing) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    listener->clear();
    platform.clear();
    post();
    EXPECT_THAT(listener->events(), IsEmpty());
    EXPECT_EQ(platform.count("AudioUnitGetProperty"), 0U);
    EXPECT_EQ(platform.count("AUGraphUpdate"), 0U);
}

TEST_F(RouteChange, WithoutCaptureChangesNothing) {
    HostUnit host;
    host.play(kAudioUnitScope_Output);
    platform.clear();
    post();
    EXPECT_EQ(platform.count("AudioUnitGetProperty"), 0U);
}

}  // namespace
