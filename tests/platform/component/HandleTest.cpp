#include <set>

#include "PlatformFixture.h"

namespace platform {
namespace {

void expectEveryUnitCallAnswers(AudioUnit unit, OSStatus expected) {
    UInt32 size = 4;
    UInt32 value = 0;
    Boolean writable = 0;
    Float32 parameter = 0;
    AudioTimeStamp time{};
    AudioBufferList list{};
    AudioUnitRenderActionFlags flags = 0;
    const auto listener = [](void*, AudioUnit, AudioUnitPropertyID, AudioUnitScope,
                             AudioUnitElement) {};
    EXPECT_EQ(AudioUnitInitialize(unit), expected);
    EXPECT_EQ(AudioUnitUninitialize(unit), expected);
    EXPECT_EQ(AudioUnitGetPropertyInfo(unit, 14, 0, 0, &size, &writable), expected);
    EXPECT_EQ(AudioUnitGetProperty(unit, 14, 0, 0, &value, &size), expected);
    EXPECT_EQ(AudioUnitSetProperty(unit, 14, 0, 0, &value, 4), expected);
    EXPECT_EQ(AudioUnitAddPropertyListener(unit, 14, listener, nullptr), expected);
    EXPECT_EQ(AudioUnitRemovePropertyListenerWithUserData(unit, 14, listener, nullptr), expected);
    EXPECT_EQ(AudioUnitAddRenderNotify(unit, Callback::proc, nullptr), expected);
    EXPECT_EQ(AudioUnitRemoveRenderNotify(unit, Callback::proc, nullptr), expected);
    EXPECT_EQ(AudioUnitGetParameter(unit, 0, 1, 0, &parameter), expected);
    EXPECT_EQ(AudioUnitSetParameter(unit, 0, 1, 0, 1, 0), expected);
    EXPECT_EQ(AudioUnitRender(unit, &flags, &time, 0, 16, &list), expected);
    EXPECT_EQ(AudioUnitReset(unit, 0, 0), expected);
    EXPECT_EQ(AudioOutputUnitStart(unit), expected);
    EXPECT_EQ(AudioOutputUnitStop(unit), expected);
    EXPECT_EQ(AudioComponentInstanceDispose(unit), expected);
}

void expectEveryGraphCallAnswers(AUGraph graph, OSStatus expected) {
    const auto wanted = remoteIO();
    AUNode node = 0;
    UInt32 count = 1;
    Boolean answer = 0;
    Float32 load = 0;
    AUNodeInteraction interaction{};
    const AURenderCallbackStruct callback{Callback::proc, nullptr};
    EXPECT_EQ(AUGraphAddNode(graph, &wanted, &node), expected);
    EXPECT_EQ(AUGraphRemoveNode(graph, 1), expected);
    EXPECT_EQ(AUGraphGetNodeCount(graph, &count), expected);
    EXPECT_EQ(AUGraphGetIndNode(graph, 0, &node), expected);
    EXPECT_EQ(AUGraphNodeInfo(graph, 1, nullptr, nullptr), expected);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, 1, 0, 2, 0), expected);
    EXPECT_EQ(AUGraphSetNodeInputCallback(graph, 1, 0, &callback), expected);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, 1, 0), expected);
    EXPECT_EQ(AUGraphClearConnections(graph), expected);
    EXPECT_EQ(AUGraphGetNumberOfInteractions(graph, &count), expected);
    EXPECT_EQ(AUGraphGetInteractionInfo(graph, 0, &interaction), expected);
    EXPECT_EQ(AUGraphCountNodeInteractions(graph, 1, &count), expected);
    EXPECT_EQ(AUGraphGetNodeInteractions(graph, 1, &count, &interaction), expected);
    EXPECT_EQ(AUGraphUpdate(graph, &answer), expected);
    EXPECT_EQ(AUGraphUpdate(graph, nullptr), expected);
    EXPECT_EQ(AUGraphOpen(graph), expected);
    EXPECT_EQ(AUGraphClose(graph), expected);
    EXPECT_EQ(AUGraphInitialize(graph), expected);
    EXPECT_EQ(AUGraphUninitialize(graph), expected);
    EXPECT_EQ(AUGraphStart(graph), expected);
    EXPECT_EQ(AUGraphStop(graph), expected);
    EXPECT_EQ(AUGraphIsOpen(graph, &answer), expected);
    EXPECT_EQ(AUGraphIsInitialized(graph, &answer), expected);
    EXPECT_EQ(AUGraphIsRunning(graph, &answer), expected);
    EXPECT_EQ(AUGraphGetCPULoad(graph, &load), expected);
    EXPECT_EQ(AUGraphGetMaxCPULoad(graph, &load), expected);
    EXPECT_EQ(AUGraphAddRenderNotify(graph, Callback::proc, nullptr), expected);
    EXPECT_EQ(AUGraphRemoveRenderNotify(graph, Callback::proc, nullptr), expected);
    EXPECT_EQ(DisposeAUGraph(graph), expected);
}

TEST(Handles, ANullUnitIsAParameterError) {
    expectEveryUnitCallAnswers(nullptr, kAudio_ParamError);
}

TEST(Handles, ADisposedUnitIsInvalidated) {
    const AudioUnit unit = makeUnit(remoteIO());
    ASSERT_EQ(AudioComponentInstanceDispose(unit), noErr);
    expectEveryUnitCallAnswers(unit, kAudioComponentErr_InstanceInvalidated);
    EXPECT_EQ(AudioComponentInstanceGetComponent(unit), nullptr);
}

TEST(Handles, APointerToSomethingElseIsNoUnit) {
    Float64 other = 0;
    expectEveryUnitCallAnswers(reinterpret_cast<AudioUnit>(&other),
                               kAudioComponentErr_InstanceInvalidated);
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    expectEveryUnitCallAnswers(reinterpret_cast<AudioUnit>(graph),
                               kAudioComponentErr_InstanceInvalidated);
    DisposeAUGraph(graph);
}

TEST(Handles, AnAddressInsideAHandleIsNoUnit) {
    const OwnedUnit unit(mixer());
    const auto inside =
        reinterpret_cast<AudioUnit>(reinterpret_cast<char*>(static_cast<AudioUnit>(unit)) + 8);
    EXPECT_EQ(AudioUnitInitialize(inside), kAudioComponentErr_InstanceInvalidated);
}

TEST(Handles, ANullGraphIsAParameterError) {
    expectEveryGraphCallAnswers(nullptr, kAudio_ParamError);
    EXPECT_EQ(NewAUGraph(nullptr), kAudio_ParamError);
}

TEST(Handles, ADisposedGraphIsInvalid) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    ASSERT_EQ(DisposeAUGraph(graph), noErr);
    expectEveryGraphCallAnswers(graph, kAUGraphErr_InvalidAudioUnit);
}

TEST(Handles, AnAddressIsNotGivenOutAgainSoon) {
    std::set<AudioUnit> seen;
    for (int i = 0; i < 10000; ++i) {
        const AudioUnit unit = makeUnit(converter());
        ASSERT_TRUE(seen.insert(unit).second);
        ASSERT_EQ(AudioComponentInstanceDispose(unit), noErr);
    }
}

TEST(Handles, UnitsBeyondTheTableAreRefusedAndComeBackAfterADispose) {
    const auto wanted = converter();
    const AudioComponent component = AudioComponentFindNext(nullptr, &wanted);
    std::vector<AudioUnit> all;
    AudioUnit unit = nullptr;
    OSStatus status = noErr;
    while (all.size() < 100000 && (status = AudioComponentInstanceNew(component, &unit)) == noErr) {
        all.push_back(unit);
    }
    EXPECT_EQ(status, kAudioComponentErr_TooManyInstances);
    EXPECT_EQ(unit, nullptr);
    AudioComponentInstanceDispose(all.back());
    all.pop_back();
    EXPECT_EQ(AudioComponentInstanceNew(component, &unit), noErr);
    all.push_back(unit);
    for (const AudioUnit each : all) {
        EXPECT_EQ(AudioComponentInstanceDispose(each), noErr);
    }
}

TEST(Handles, ShowingAnythingIsHarmless) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    AUNode node = 0;
    const auto wanted = remoteIO();
    ASSERT_EQ(AUGraphAddNode(graph, &wanted, &node), noErr);
    const AURenderCallbackStruct callback{Callback::proc, nullptr};
    ASSERT_EQ(AUGraphSetNodeInputCallback(graph, node, 0, &callback), noErr);
    int other = 0;
    testing::internal::CaptureStderr();
    CAShow(graph);
    CAShow(nullptr);
    CAShow(&other);
    const std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_NE(shown.find("AUGraph"), std::string::npos);
    EXPECT_NE(shown.find("node 1: TQPlatform: RemoteIO"), std::string::npos);
    EXPECT_NE(shown.find("callback"), std::string::npos);
    EXPECT_NE(shown.find("no object of this library"), std::string::npos);
    DisposeAUGraph(graph);
}

TEST(Handles, AUnitDisposedOfInsideItsOwnCallbackEndsAfterTheSlice) {
    Player player;
    const AudioUnit unit = makeUnit(remoteIO());
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                        AudioBufferList* list) {
        EXPECT_EQ(AudioComponentInstanceDispose(unit), noErr);
        EXPECT_EQ(AudioUnitInitialize(unit), kAudioComponentErr_InstanceInvalidated);
        samples<float>(list)[frames - 1] = 0.5F;
        return OSStatus{noErr};
    };
    ASSERT_EQ(setCallback(unit, 0, callback), noErr);
    ASSERT_EQ(AudioUnitInitialize(unit), noErr);
    ASSERT_EQ(AudioOutputUnitStart(unit), noErr);
    player.pump(64, 3);
    EXPECT_EQ(callback.calls, 1);
    EXPECT_EQ(player.left[63], 0.5F);
    EXPECT_EQ(player.left[127], 0.0F);
}

}  // namespace
}  // namespace platform
