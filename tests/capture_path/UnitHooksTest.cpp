#include <thread>

#include "CapturePathFixture.h"
#include "RZReplayAudioUnitCapturer.h"
#include "TQAudioCaptureBase.h"

// What the five intercepted unit functions do with each call of a host.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNew = "Record_unit_AudioComponentInstanceNew";
constexpr const char* kSet = "Record_unit_AudioUnitSetProperty";
constexpr const char* kStart = "Record_unit_AudioOutputUnitStart";
constexpr const char* kStop = "Record_unit_AudioOutputUnitStop";
constexpr const char* kUninitialize = "Record_unit_AudioUnitUninitialize";

AudioComponent find(OSType type, OSType subType) {
    const AudioComponentDescription wanted{type, subType, kAudioUnitManufacturer_Apple, 0, 0};
    return AudioComponentFindNext(nullptr, &wanted);
}

std::size_t registered() {
    return RZStreamMixManager::sharedManager()->getUnitObjListWithCopy().size();
}

/// Runs `work` on a thread of that name.
template <class Work>
void onThreadNamed(const std::string& name, Work work) {
    std::thread([&] {
        NSThread::setCurrentThreadName(name);
        work();
    }).join();
}

using UnitHooks = CapturePath;

struct OutputKinds : CapturePath, testing::WithParamInterface<OSType> {};

TEST_P(OutputKinds, GetACaptureObjectInTheStoppedState) {
    const AudioComponent component = find(kAudioUnitType_Output, GetParam());
    AudioUnit unit = nullptr;
    ASSERT_EQ(AudioComponentInstanceNew(component, &unit), 0);
    const auto obj = manager().findAudioUnitObj(unit);
    ASSERT_TRUE(obj);
    EXPECT_EQ(obj->trackId(), 1);
    EXPECT_EQ(obj->compDesc().componentSubType, GetParam());
    EXPECT_FALSE(obj->isStarted());
    EXPECT_THAT(
        logs->linesOf(kNew),
        ElementsAre(IsLogLine(kUnitHookFile, kNew, 2,
                              "[AudioUnitHook] AudioComponentInstanceNew: " +
                                  pointerText(component) + ", " + pointerText(&unit)),
                    IsLogLine(kUnitHookFile, kNew, 2,
                              "[AudioUnitHook] catch output audio unit: " + pointerText(unit))));
    EXPECT_EQ(logs->count("[mix] newAudioUnitObj, key: " + pointerText(unit) +
                          ", ioUnit: " + pointerText(unit)),
              1U);
    AudioComponentInstanceDispose(unit);
}

INSTANTIATE_TEST_SUITE_P(All, OutputKinds,
                         testing::Values(OSType{kAudioUnitSubType_RemoteIO},
                                         OSType{kAudioUnitSubType_VoiceProcessingIO},
                                         OSType{kAudioUnitSubType_GenericOutput}));

struct OtherKinds : CapturePath, testing::WithParamInterface<std::pair<OSType, OSType>> {};

TEST_P(OtherKinds, GetNoCaptureObjectAndWorkUntouched) {
    const AudioComponent component = find(GetParam().first, GetParam().second);
    ASSERT_NE(component, nullptr);
    AudioUnit unit = nullptr;
    ASSERT_EQ(AudioComponentInstanceNew(component, &unit), 0);
    EXPECT_EQ(registered(), 0U);
    EXPECT_THAT(logs->linesOf(kNew), testing::SizeIs(1));
    // Its own callback stays its own.
    HostSound sound;
    const AURenderCallbackStruct callback = sound.callback();
    EXPECT_EQ(AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
              0);
    EXPECT_EQ(logs->linesOf(kSet).size(), 1U) << "no take-over line";
    EXPECT_EQ(AudioUnitUninitialize(unit), 0);
    EXPECT_EQ(AudioComponentInstanceDispose(unit), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, OtherKinds,
    testing::Values(
        std::pair<OSType, OSType>{kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer},
        std::pair<OSType, OSType>{kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter}));

TEST_F(UnitHooks, ANewUnitIsRecordedAfterThePlatformMadeIt) {
    bool seen = false;
    platform.watch("AudioComponentInstanceNew", [&](const auto&) {
        seen = true;
        EXPECT_THAT(logs->linesOf(kNew), testing::SizeIs(1));
        EXPECT_EQ(registered(), 0U);
    });
    const HostUnit host;
    EXPECT_TRUE(seen);
    EXPECT_EQ(registered(), 1U);
    platform.watch("AudioComponentInstanceNew", {});
}

TEST_F(UnitHooks, AComponentWithoutADescriptionIsLoggedAndIgnored) {
    platform.fail("AudioComponentGetDescription", -50);
    AudioUnit unit = nullptr;
    EXPECT_EQ(
        AudioComponentInstanceNew(find(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO), &unit),
        0);
    EXPECT_THAT(logs->linesOf(kNew),
                Contains(IsLogLine(kUnitHookFile, kNew, 4,
                                   "[AudioUnitHook] AudioComponentGetDescription error: -50")));
    EXPECT_EQ(registered(), 0U);
    AudioComponentInstanceDispose(unit);
}

TEST_F(UnitHooks, NoPlaceForTheUnitAnswersThePlatformsError) {
    EXPECT_EQ(
        AudioComponentInstanceNew(find(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO), nullptr),
        kAudio_ParamError);
    AudioUnit unit = nullptr;
    EXPECT_EQ(AudioComponentInstanceNew(nullptr, &unit), kAudio_ParamError);
    EXPECT_EQ(registered(), 0U);
}

TEST_F(UnitHooks, AnEighthUnitWorksWithoutACaptureObject) {
    HostUnit hosts[7];
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(hosts[i].object()->trackId(), i + 1);
    }
    logs->clear();
    HostUnit eighth;
    EXPECT_THAT(logs->linesOf(kNew),
                Contains(IsLogLine(kUnitHookFile, kNew, 4,
                                   "[AudioUnitHook] Can not obtain new AudioUnitObj.")));
    EXPECT_EQ(eighth.object(), nullptr);
    eighth.play();
    pump();
    EXPECT_EQ(eighth.sound.calls, 1);
}

struct CommunicationThreads : CapturePath,
                              testing::WithParamInterface<std::pair<const char*, bool>> {};

TEST_P(CommunicationThreads, GiveTheirUnitsToTheCompanion) {
    const auto& [name, isAgora] = GetParam();
    onThreadNamed(name, [&, agora = isAgora] {
        HostUnit host;
        EXPECT_EQ(registered(), 0U);
        EXPECT_TRUE(resolver().existAudioUnit(host.unit()));
        const std::string text = agora ? "[AudioUnitHook] audio unit is agora audio unit: "
                                       : "[AudioUnitHook] audio unit is rtc audio unit: ";
        EXPECT_THAT(logs->linesOf(kNew),
                    Contains(IsLogLine(kUnitHookFile, kNew, 2, text + pointerText(host.unit()))));
        // Its callback stays its own, and it plays.
        host.play();
        pump();
        EXPECT_EQ(host.sound.calls, 1);
        EXPECT_TRUE(resolver().existAudioUnit(host.unit()));
        host.stop();
        host.uninitialize();
        EXPECT_FALSE(resolver().existAudioUnit(host.unit()));
    });
}

INSTANTIATE_TEST_SUITE_P(Names, CommunicationThreads,
                         testing::Values(std::pair{"AgoraServiceThread", true},
                                         std::pair{"VeqDeviceThread", false},
                                         std::pair{"MWAudioDeviceThread", false},
                                         std::pair{"engine.MWAudioDeviceThread-17", false},
                                         std::pair{"AgoraServiceThr", true},
                                         std::pair{"MWAudioDeviceTh", false}));

struct OrdinaryThreads : CapturePath, testing::WithParamInterface<const char*> {};

TEST_P(OrdinaryThreads, KeepTheirUnits) {
    onThreadNamed(GetParam(), [&] {
        const HostUnit host;
        EXPECT_NE(host.object(), nullptr);
        EXPECT_FALSE(resolver().existAudioUnit(host.unit()));
    });
}

INSTANTIATE_TEST_SUITE_P(Names, OrdinaryThreads,
                         testing::Values("AgoraServiceThread2", "xAgoraServiceThread",
                                         "VeqDeviceThread-1", "agoraservicethread",
                                         "MWAudioDeviceThrea", "AgoraServiceTh", "MWAudioDeviceT"));

struct TakenOverScopes : CapturePath, testing::WithParamInterface<AudioUnitScope> {};

TEST_P(TakenOverScopes, ChainTheHostsCallback) {
    HostUnit host;
    ASSERT_EQ(host.setFormat(host.sound.format), 0);
    logs->clear();
    ASSERT_EQ(host.setCallback(GetParam()), 0);
    EXPECT_EQ(host.object()->origin_inputProc(), &HostSound::render);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
    EXPECT_THAT(
        logs->linesOf(kSet),
        ElementsAre(
            IsLogLine(kUnitHookFile, kSet, 2,
                      "[AudioUnitHook] AudioUnitSetProperty: " + pointerText(host.unit()) +
                          ", 23, " + std::to_string(GetParam()) + ", 0"),
            IsLogLine(kUnitHookFile, kSet, 1,
                      "[AudioUnitHook] RZReplay override callback struct, origin refcon:" +
                          pointerText(&host.sound) + ", after:" + pointerText(host.unit()))));
    host.initialize();
    host.start();
    pump();
    EXPECT_EQ(host.sound.calls, 1);
}

INSTANTIATE_TEST_SUITE_P(All, TakenOverScopes,
                         testing::Values(AudioUnitScope{kAudioUnitScope_Global},
                                         AudioUnitScope{kAudioUnitScope_Input}));

TEST_F(UnitHooks, ACallbackOnTheOutputScopeOrOnAnotherElementPassesUnchanged) {
    HostUnit host;
    EXPECT_EQ(host.setCallback(kAudioUnitScope_Output), 0);
    host.setCallback(kAudioUnitScope_Input, 1);
    host.setCallback(kAudioUnitScope_Global, 1);
    EXPECT_EQ(host.object()->origin_inputProc(), nullptr);
    EXPECT_EQ(logs->linesOf(kSet).size(), 3U) << "each call is noted, none taken over";
}

TEST_F(UnitHooks, ACallbackThatIsTooShortIsLeftToThePlatformAndTheOneBeforePlaysOn) {
    HostUnit host;
    host.play();
    HostSound next;
    const AURenderCallbackStruct callback = next.callback();
    platform.clear();
    EXPECT_EQ(AudioUnitSetProperty(host.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof callback - 1),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_THAT(platform.calls("AudioUnitSetProperty")[0].numbers, ElementsAre(23, 1, 0, 15));
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
    pump();
    EXPECT_EQ(host.sound.calls, 1);
    EXPECT_EQ(next.calls, 0);
}

TEST_F(UnitHooks, ASecondCallbackReplacesTheFirst) {
    HostUnit host;
    HostSound second;
    host.play();
    const AURenderCallbackStruct callback = second.callback();
    ASSERT_EQ(AudioUnitSetProperty(host.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
              0);
    pump();
    EXPECT_EQ(host.sound.calls, 0);
    EXPECT_EQ(second.calls, 1);
}

TEST_F(UnitHooks, ANullCallbackPassesThroughAndTheSavedOneStays) {
    HostUnit host;
    host.play();
    const AURenderCallbackStruct none{nullptr, nullptr};
    EXPECT_EQ(AudioUnitSetProperty(host.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &none, sizeof(none)),
              0);
    EXPECT_EQ(AudioUnitSetProperty(host.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, nullptr, 0),
              0);
    EXPECT_EQ(host.object()->origin_inputProc(), &HostSound::render);
    pump();
    EXPECT_EQ(host.sound.calls, 0) << "the platform has no callback any more";
}

TEST_F(UnitHooks, TheLibrarysOwnCallbackPassesThroughAndTheSavedOneStays) {
    HostUnit host;
    host.play();
    const AURenderCallbackStruct own{RZReplayAudioUnitCapture_InputProcessCallback, host.unit()};
    EXPECT_EQ(AudioUnitSetProperty(host.unit(), kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &own, sizeof(own)),
              0);
    EXPECT_EQ(host.object()->origin_inputProcRefCon(), &host.sound);
    pump();
    EXPECT_EQ(host.sound.calls, 1) << "once, not in a circle";
}

TEST_F(UnitHooks, OtherPropertiesReachThePlatformAsTheyAre) {
    HostUnit host;
    platform.clear();
    EXPECT_EQ(host.setFormat(stream_formats::floatPlanar(44100, 2)), 0);
    EXPECT_EQ(host.enableMicrophone(), 0);
    const auto calls = platform.calls("AudioUnitSetProperty");
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_THAT(calls[0].numbers,
                ElementsAre(8, 1, 0, static_cast<long>(sizeof(AudioStreamBasicDescription))));
    EXPECT_THAT(calls[1].numbers, ElementsAre(2003, 1, 1, 4));
    EXPECT_EQ(host.object()->origin_inputProc(), nullptr);
}

TEST_F(UnitHooks, AStatusOfThePlatformComesBackFromEveryFunction) {
    HostUnit host;
    host.prepare();
    platform.fail("AudioUnitSetProperty", -11);
    platform.fail("AudioOutputUnitStart", -12);
    platform.fail("AudioOutputUnitStop", -13);
    platform.fail("AudioUnitUninitialize", -14);
    platform.fail("AudioComponentInstanceNew", -15);
    EXPECT_EQ(host.setCallback(), -11);
    EXPECT_EQ(host.setFormat(host.sound.format), -11);
    EXPECT_EQ(host.start(), -12);
    EXPECT_EQ(host.stop(), -13);
    EXPECT_EQ(AudioUnitUninitialize(host.unit()), -14);
    AudioUnit unit = nullptr;
    EXPECT_EQ(
        AudioComponentInstanceNew(find(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO), &unit),
        -15);
    platform.heal();
}

TEST_F(UnitHooks, TheRegistryLearnsOfAStartBeforeTheUnitRuns) {
    HostUnit host;
    host.prepare();
    bool seen = false;
    platform.watch("AudioOutputUnitStart", [&](const auto&) {
        seen = true;
        EXPECT_TRUE(host.object()->isStarted());
    });
    host.start();
    EXPECT_TRUE(seen);
    EXPECT_THAT(logs->linesOf(kStart),
                ElementsAre(IsLogLine(
                    kUnitHookFile, kStart, 2,
                    "[AudioUnitHook] AudioOutputUnitStart: " + pointerText(host.unit()))));
    platform.watch("AudioOutputUnitStart", {});
}

TEST_F(UnitHooks, TheRegistryLearnsOfAStopBeforeTheUnitStops) {
    HostUnit host;
    host.play();
    bool seen = false;
    platform.watch("AudioOutputUnitStop", [&](const auto&) {
        seen = true;
        EXPECT_FALSE(host.object()->isStarted());
    });
    host.stop();
    EXPECT_TRUE(seen);
    EXPECT_THAT(logs->linesOf(kStop), ElementsAre(IsLogLine(kUnitHookFile, kStop, 2,
                                                            "[AudioUnitHook] AudioOutputUnitStop:" +
                                                                pointerText(host.unit()) + ", ")));
    platform.watch("AudioOutputUnitStop", {});
}

TEST_F(UnitHooks, UninitialisingEndsTheCaptureObjectBeforeThePlatformIsCalled) {
    HostUnit host;
    host.play();
    host.stop();
    bool seen = false;
    platform.watch("AudioUnitUninitialize", [&](const auto&) {
        seen = true;
        EXPECT_EQ(host.object(), nullptr);
    });
    logs->clear();
    host.uninitialize();
    EXPECT_TRUE(seen);
    const std::string unit = pointerText(host.unit());
    EXPECT_THAT(logs->linesOf(kUninitialize),
                ElementsAre(IsLogLine(kUnitHookFile, kUninitialize, 2,
                                      "[AudioUnitHook] AudioUnitUninitialize: " + unit)));
    constexpr const char* kDispose = "-[RZStreamMixManager disposeAudioUnitObj:]";
    EXPECT_THAT(logs->linesOf(kDispose),
                ElementsAre(IsLogLine(kManagerFile, kDispose, 2,
                                      "[mix] disposeAudioUnitObj: " + unit + ", " + unit)));
    platform.watch("AudioUnitUninitialize", {});
}

TEST_F(UnitHooks, DisposingAloneKeepsTheCaptureObject) {
    HostUnit host;
    const AudioUnit unit = host.unit();
    EXPECT_EQ(AudioComponentInstanceDispose(unit), 0);
    EXPECT_NE(manager().findAudioUnitObj(unit), nullptr);
}

TEST_F(UnitHooks, UnknownUnitsAreNotedAndPassedOn) {
    AudioUnit mixer = nullptr;
    AudioComponentInstanceNew(find(kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer),
                              &mixer);
    logs->clear();
    AudioOutputUnitStart(mixer);
    AudioOutputUnitStop(mixer);
    EXPECT_THAT(logs->linesOf(kStart),
                Contains(IsLogLine(kUnitHookFile, kStart, 3,
                                   "[AudioUnitHook] Ignore audio unit start, not found in "
                                   "unitMap: " +
                                       pointerText(mixer))));
    EXPECT_THAT(logs->linesOf(kStop),
                Contains(IsLogLine(kUnitHookFile, kStop, 3,
                                   "[AudioUnitHook] Ignore audio unit stop, not found in "
                                   "unitMap: " +
                                       pointerText(mixer))));
    EXPECT_EQ(platform.count("AudioOutputUnitStart"), 1U);
    EXPECT_EQ(platform.count("AudioOutputUnitStop"), 1U);
    AudioComponentInstanceDispose(mixer);
}

TEST_F(UnitHooks, NullAndStaleUnitsAnswerThePlatformsErrorsAndNeverCrash) {
    HostUnit host;
    host.play();
    const AudioUnit stale = host.unit();
    AudioOutputUnitStop(stale);
    AudioUnitUninitialize(stale);
    AudioComponentInstanceDispose(stale);
    const AURenderCallbackStruct callback = host.sound.callback();
    for (const AudioUnit bad : {AudioUnit{nullptr}, stale}) {
        const OSStatus expected =
            bad == nullptr ? OSStatus{kAudio_ParamError} : kAudioComponentErr_InstanceInvalidated;
        EXPECT_EQ(AudioOutputUnitStart(bad), expected);
        EXPECT_EQ(AudioOutputUnitStop(bad), expected);
        EXPECT_EQ(AudioUnitUninitialize(bad), expected);
        EXPECT_EQ(AudioUnitSetProperty(bad, kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
                  expected);
        EXPECT_NE(
            AudioUnitSetProperty(bad, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, nullptr, 0xFFFFFFFF), 0);
    }
}

TEST_F(UnitHooks, AUnitThatDiedWhileCapturingIsStoppedWithoutACrash) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    pump(2);
    const AudioUnit unit = host.unit();
    AudioComponentInstanceDispose(unit);
    pump(2);
    EXPECT_EQ(AudioOutputUnitStop(unit), kAudioComponentErr_InstanceInvalidated);
    EXPECT_EQ(AudioUnitUninitialize(unit), kAudioComponentErr_InstanceInvalidated);
    EXPECT_EQ(registered(), 0U);
    pump(2);
}

TEST_F(UnitHooks, WithThePassThroughSwitchOffNothingIsLoggedAndNothingRecorded) {
    HostUnit known;
    known.prepare();
    RZReplayAudioUnitCapturer::enableHook(NO);
    logs->clear();
    {
        HostUnit host;
        EXPECT_EQ(registered(), 1U) << "not created";
        host.play();
        pump();
        EXPECT_EQ(host.sound.calls, 1);
    }
    known.start();
    EXPECT_FALSE(known.object()->isStarted()) << "not started";
    known.stop();
    known.uninitialize();
    EXPECT_NE(known.object(), nullptr) << "not disposed of";
    EXPECT_THAT(logs->lines(), IsEmpty());
    RZReplayAudioUnitCapturer::enableHook(YES);
    EXPECT_TRUE(RZReplayAudioUnitCapturer::isHookStarted());
    const HostUnit again;
    EXPECT_EQ(registered(), 2U);
}

TEST_F(UnitHooks, StartingTheHooksAgainInstallsNothingTwice) {
    for (int i = 0; i < 3; ++i) {
        RZReplayAudioUnitCapturer::startHook();
    }
    logs->clear();
    const HostUnit host;
    EXPECT_EQ(logs->linesOf(kNew).size(), 2U);
    EXPECT_EQ(platform.count("AudioComponentInstanceNew"), 1U);
}

}  // namespace
