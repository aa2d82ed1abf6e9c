#include <algorithm>

#include "CapturePathFixture.h"

// The private graph: what happens when the platform refuses one of its steps.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kInit = "-[RZStreamMixManager initResampleUnit]";
constexpr const char* kStartGraph = "-[RZStreamMixManager startResampleUnit]";
constexpr const char* kStopGraph = "-[RZStreamMixManager stopResampleMix]";
constexpr const char* kTearDown = "-[RZStreamMixManager unInitializeResampleUnit]";
constexpr const char* kStartCapture = "-[RZStreamMixManager startCapture]";
constexpr const char* kStopCapture = "-[RZStreamMixManager stopCapture]";

/// The lines of level 4 that one function wrote.
std::vector<LogLine> errorsOf(const LogCapture& logs, const char* function) {
    auto lines = logs.linesOf(function);
    std::erase_if(lines, [](const LogLine& line) { return line.level != 4; });
    return lines;
}

struct Step {
    const char* name;
    const char* function;
    int nth;
    const char* message;
    PlatformCalls::When when = {};
    friend std::ostream& operator<<(std::ostream& out, const Step& step) {
        return out << step.name;
    }
};

std::string stepName(const testing::TestParamInfo<Step>& info) {
    return info.param.name;
}

struct Building : CapturePath, testing::WithParamInterface<Step> {};

TEST_P(Building, ARefusedStepIsLoggedWithItsStatusAndEndsTheStart) {
    const Step& step = GetParam();
    platform.failFrom(step.function, step.nth, -10868, step.when);
    EXPECT_FALSE(startCapture());

    const auto errors = errorsOf(*logs, kInit);
    ASSERT_THAT(errors, ElementsAre(IsLogLine(kManagerFile, kInit, 4, step.message),
                                    IsLogLine(kManagerFile, kInit, 4, "-10868")));
    EXPECT_EQ(errors[0].line, errors[1].line);
    EXPECT_THAT(
        errorsOf(*logs, kStartCapture),
        ElementsAre(IsLogLine(kManagerFile, kStartCapture, 4, "[mix] resample init failed")));
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 100, "[mix] resample init failed")));
    EXPECT_FALSE(manager().isResamplerInit());
    EXPECT_FALSE(manager().isCapturing());
    EXPECT_FALSE(manager().lastStopError());
}

TEST_P(Building, ARefusedStepLeavesWhatWasMadeAndTheNextStartWorks) {
    const Step& step = GetParam();
    platform.failFrom(step.function, step.nth, -1, step.when);
    EXPECT_FALSE(startCapture());
    EXPECT_EQ(platform.count("DisposeAUGraph"), 0U);
    const bool hasGraph = std::string(step.name) != "newGraph";
    EXPECT_EQ(manager().mGraph() != nullptr, hasGraph);
    EXPECT_EQ(resolver().existAuGraph(manager().mGraph()), hasGraph);

    stopCapture();
    platform.heal();
    listener->clear();
    EXPECT_TRUE(startCapture());
    EXPECT_TRUE(manager().isResamplerInit());
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 0, "[]")));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, Building,
    testing::Values(
        Step{"newGraph", "NewAUGraph", 1, "newAUGraph fail"},
        Step{"mixerNode", "AUGraphAddNode", 1, "AUGraphAddNode fail"},
        Step{"outputNode", "AUGraphAddNode", 2, "AUGraphAddNode fail"},
        Step{"connection", "AUGraphConnectNodeInput", 1, "AUGraphConnectNodeInput fail"},
        Step{"open", "AUGraphOpen", 1, "AUGraphOpen fail"},
        Step{"mixerInfo", "AUGraphNodeInfo", 1, "AUGraphNodeInfo fail"},
        Step{"outputInfo", "AUGraphNodeInfo", 2, "AUGraphNodeInfo fail"},
        Step{"outputFormat", "AudioUnitSetProperty", 1, "mixunit set output streamFormat fail",
             PlatformCalls::property(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0)},
        Step{"maximumFrames", "AudioUnitSetProperty", 1, "mixunit set MaximumFramesPerSlice fail",
             PlatformCalls::property(kAudioUnitProperty_MaximumFramesPerSlice,
                                     kAudioUnitScope_Global, 0)},
        Step{"notify", "AudioUnitAddRenderNotify", 1, "mixunit add notify fail"}),
    stepName);

TEST_F(CapturePath, AStatusOfFourPrintableCharactersIsLoggedAsThoseCharacters) {
    platform.fail("NewAUGraph", 0x666D743F);
    EXPECT_FALSE(startCapture());
    EXPECT_THAT(errorsOf(*logs, kInit),
                ElementsAre(IsLogLine(kManagerFile, kInit, 4, "newAUGraph fail"),
                            IsLogLine(kManagerFile, kInit, 4, "'fmt?'")));
}

struct Connecting : CapturePath, testing::WithParamInterface<Step> {};

TEST_P(Connecting, ARefusedUnitIsLoggedWithItsTrackAndEndsTheStart) {
    HostUnit host;
    host.play();
    const Step& step = GetParam();
    platform.fail(step.function, -10861, step.when);
    EXPECT_FALSE(startCapture());

    const auto errors = errorsOf(*logs, kStartGraph);
    ASSERT_THAT(errors, ElementsAre(IsLogLine(kManagerFile, kStartGraph, 4, step.message),
                                    IsLogLine(kManagerFile, kStartGraph, 4, "-10861"),
                                    IsLogLine(kManagerFile, kStartGraph, 4, "trackid:1")));
    EXPECT_EQ(errors[0].line, errors[1].line);
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 100, "[mix] resample unit start fail")));
    EXPECT_THAT(
        errorsOf(*logs, kStartCapture),
        ElementsAre(IsLogLine(kManagerFile, kStartCapture, 4, "[mix] resample unit start fail")));
    EXPECT_FALSE(manager().isCapturing());
    EXPECT_FALSE(host.object()->isCapturing());
    EXPECT_TRUE(manager().isResamplerInit());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, Connecting,
    testing::Values(
        Step{"callback", "AUGraphSetNodeInputCallback", 1,
             "resample input connect origin outer input fail"},
        Step{"busFormat", "AudioUnitSetProperty", 1, "resample set input streamFormat fail",
             PlatformCalls::property(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 1)}),
    stepName);

struct Starting : CapturePath, testing::WithParamInterface<Step> {};

TEST_P(Starting, ARefusedGraphIsLoggedAndLeavesTheUnitsConnected) {
    HostUnit host;
    host.play();
    const Step& step = GetParam();
    platform.failFrom(step.function, step.nth, -10875);
    EXPECT_FALSE(startCapture());

    const auto errors = errorsOf(*logs, kStartGraph);
    ASSERT_THAT(errors,
                ElementsAre(IsLogLine(kManagerFile, kStartGraph, 4,
                                      "audio unit start capture: " + pointerText(host.unit())),
                            IsLogLine(kManagerFile, kStartGraph, 4, step.message),
                            IsLogLine(kManagerFile, kStartGraph, 4, "-10875")));
    EXPECT_EQ(errors[1].line, errors[2].line);
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 100, "[mix] resample unit start fail")));
    EXPECT_TRUE(host.object()->isCapturing());
    EXPECT_FALSE(manager().isCapturing());
}

INSTANTIATE_TEST_SUITE_P(Steps, Starting,
                         testing::Values(Step{"open", "AUGraphOpen", 2, "resample graph open fail"},
                                         Step{"initialize", "AUGraphInitialize", 1,
                                              "resample graph initialize fail"},
                                         Step{"start", "AUGraphStart", 1, "AUGraphStart fail"}),
                         stepName);

using PrivateGraph = CapturePath;

TEST_F(PrivateGraph, IsBuiltAndStartedInTheRightOrder) {
    HostUnit host;
    host.play();
    logs->clear();
    ASSERT_TRUE(startCapture());
    EXPECT_THAT(logs->linesOf(kStartGraph),
                ElementsAre(IsLogLine(kManagerFile, kStartGraph, 2,
                                      "[mix] Audio resampler connect unitObj, trackid: 1"),
                            IsLogLine(kManagerFile, kStartGraph, 4,
                                      "audio unit start capture: " + pointerText(host.unit()))));
    EXPECT_THAT(logs->linesOf(kStartCapture)[0],
                IsLogLine(kManagerFile, kStartCapture, 2,
                          "[mix] start capture, isCurrentInterrupting: 0, isCapturing: 0"));
    const std::string unit = pointerText(host.unit());
    const std::string summary = "[{key: " + unit + ", unit: " + unit + ", capture: 1, starte: 1},]";
    EXPECT_THAT(logs->linesOf(kStartCapture).back(),
                IsLogLine(kManagerFile, kStartCapture, 2, summary));
    EXPECT_THAT(listener->events(), ElementsAre(event(0, 0, summary)));
    EXPECT_TRUE(resolver().existAuGraph(manager().mGraph()));
    EXPECT_TRUE(resolver().existAudioUnit(manager().mixUnit()));
    EXPECT_TRUE(resolver().existAudioUnit(manager().outUnit()));
}

TEST_F(PrivateGraph, AStartAfterAFailedOneReadsTheFormatsAgain) {
    HostUnit host;
    host.play(kAudioUnitScope_Output);
    platform.fail("AUGraphStart", -1);
    ASSERT_FALSE(startCapture());
    ASSERT_TRUE(host.object()->isCapturing());
    ASSERT_EQ(host.object()->streamDesc().mSampleRate, 48000);
    platform.heal();
    // The device's side changes without a call of the host.
    ASSERT_EQ(TQManualDeviceSetSampleRate(44100), 0);
    EXPECT_TRUE(manager().startCapture());
    EXPECT_EQ(host.object()->streamDesc().mSampleRate, 44100);
    stopCapture();
    host.dispose();
    EXPECT_EQ(TQManualDeviceSetSampleRate(48000), 0);
}

TEST_F(PrivateGraph, AGraphThatDoesNotStopIsAPermanentError) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    logs->clear();
    listener->clear();
    platform.fail("AUGraphStop", -10863,
                  [&](const auto& call) { return call.object == manager().mGraph(); });
    // Through the manager: a removed listener hears no events.
    EXPECT_TRUE(manager().stopCapture());

    const auto errors = errorsOf(*logs, kStopGraph);
    ASSERT_THAT(errors, ElementsAre(IsLogLine(kManagerFile, kStopGraph, 4, "AUGraphStop fail"),
                                    IsLogLine(kManagerFile, kStopGraph, 4, "-10863")));
    EXPECT_EQ(errors[0].line, errors[1].line);
    EXPECT_THAT(
        logs->linesOf(kStopCapture),
        ElementsAre(IsLogLine(kManagerFile, kStopCapture, 2, "[mix]stop capture"),
                    IsLogLine(kManagerFile, kStopCapture, 1, "[mix] resample stop failed")));
    EXPECT_THAT(listener->events(), ElementsAre(event(4, 102, "[mix] resample stop failed")));
    EXPECT_TRUE(host.object()->isCapturing()) << "no unit is touched when the graph runs on";
    EXPECT_TRUE(manager().lastStopError());
    EXPECT_FALSE(manager().isCapturing());

    platform.heal();
    for (int attempt = 0; attempt < 2; ++attempt) {
        listener->clear();
        logs->clear();
        EXPECT_FALSE(manager().startCapture());
        EXPECT_THAT(listener->events(), ElementsAre(event(0, 102, "[mix] has stop error")));
        EXPECT_THAT(errorsOf(*logs, kStartCapture),
                    ElementsAre(IsLogLine(kManagerFile, kStartCapture, 4, "[mix] has stop error")));
    }
}

TEST_F(PrivateGraph, ABusThatDoesNotDisconnectStopsItsUnitAllTheSame) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    logs->clear();
    listener->clear();
    platform.fail("AUGraphDisconnectNodeInput", -10860);
    EXPECT_TRUE(manager().stopCapture());

    const auto errors = errorsOf(*logs, kStopGraph);
    ASSERT_THAT(
        errors,
        ElementsAre(IsLogLine(kManagerFile, kStopGraph, 4, "resample input disconnect fail"),
                    IsLogLine(kManagerFile, kStopGraph, 4, "-10860"),
                    IsLogLine(kManagerFile, kStopGraph, 4,
                              "[mix]Failed! Audio resampler update disconnect unitObj, "
                              "trackid:1")));
    EXPECT_EQ(errors[0].line, errors[1].line);
    EXPECT_EQ(logs->count("[mix] Audio resampler update disconnect unitObj, trackid: 1"), 1U);
    EXPECT_FALSE(host.object()->isCapturing());
    EXPECT_THAT(listener->events(), ElementsAre(event(4, 102, "[mix] resample stop failed")));
    EXPECT_FALSE(manager().isResamplerInit()) << "the graph is torn down all the same";
}

struct TearingDown : CapturePath, testing::WithParamInterface<Step> {};

TEST_P(TearingDown, ARefusedStepIsLoggedOnceAndNeverTriedAgain) {
    ASSERT_TRUE(startCapture());
    logs->clear();
    listener->clear();
    const Step& step = GetParam();
    const AUGraph graph = manager().mGraph();
    platform.fail(step.function, -50);
    EXPECT_TRUE(manager().stopCapture());

    const auto errors = errorsOf(*logs, kTearDown);
    ASSERT_THAT(errors, ElementsAre(IsLogLine(kManagerFile, kTearDown, 4, step.message),
                                    IsLogLine(kManagerFile, kTearDown, 4, "-50")));
    EXPECT_EQ(errors[0].line, errors[1].line);
    EXPECT_THAT(logs->linesOf(kStopCapture),
                ElementsAre(IsLogLine(kManagerFile, kStopCapture, 2, "[mix]stop capture"),
                            IsLogLine(kManagerFile, kStopCapture, 1,
                                      "[mix] resample uninitialize failed")));
    EXPECT_THAT(listener->events(),
                ElementsAre(event(4, 102, "[mix] resample uninitialize failed")));
    EXPECT_TRUE(manager().lastStopError());
    EXPECT_FALSE(manager().isResamplerInit());
    EXPECT_EQ(manager().mGraph(), graph) << "handles are kept";

    const auto tries = platform.count(step.function);
    EXPECT_TRUE(manager().unInitializeResampleUnit());
    EXPECT_EQ(platform.count(step.function), tries);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, TearingDown,
    testing::Values(Step{"uninitialize", "AUGraphUninitialize", 1, "AUGraphUninitialize fail"},
                    Step{"close", "AUGraphClose", 1, "AUGraphClose fail"},
                    Step{"dispose", "DisposeAUGraph", 1, "DisposeAUGraph fail"}),
    stepName);

TEST_F(PrivateGraph, BothStopFailuresAreReportedOneAfterTheOther) {
    ASSERT_TRUE(startCapture());
    listener->clear();
    platform.fail("AUGraphStop", -1);
    platform.fail("AUGraphUninitialize", -2);
    EXPECT_TRUE(manager().stopCapture());
    EXPECT_THAT(listener->events(),
                ElementsAre(event(4, 102, "[mix] resample stop failed"),
                            event(4, 102, "[mix] resample uninitialize failed")));
}

TEST_F(PrivateGraph, IsForgottenByTheCompanionBeforeItIsUninitialised) {
    ASSERT_TRUE(startCapture());
    bool seen = false;
    platform.watch("AUGraphUninitialize", [&](const auto&) {
        seen = true;
        EXPECT_FALSE(manager().isResamplerInit());
        EXPECT_FALSE(resolver().existAuGraph(manager().mGraph()));
        EXPECT_FALSE(resolver().existAudioUnit(manager().mixUnit()));
        EXPECT_FALSE(resolver().existAudioUnit(manager().outUnit()));
    });
    stopCapture();
    EXPECT_TRUE(seen);
    EXPECT_EQ(platform.count("AUGraphClose"), 1U);
    EXPECT_EQ(platform.count("DisposeAUGraph"), 1U);
    platform.watch("AUGraphUninitialize", {});
}

TEST_F(PrivateGraph, AStopWithoutACaptureAnswersYesAndRaisesNothing) {
    logs->clear();
    EXPECT_TRUE(manager().stopCapture());
    EXPECT_THAT(logs->linesOf(kStopCapture),
                ElementsAre(IsLogLine(kManagerFile, kStopCapture, 2, "[mix]stop capture")));
    EXPECT_THAT(listener->events(), IsEmpty());
    EXPECT_EQ(platform.count("AUGraphStop"), 0U);
}

}  // namespace
