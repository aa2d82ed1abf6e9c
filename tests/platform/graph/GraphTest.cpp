#include <algorithm>
#include <cstdint>

#include "graph/GraphFixture.h"

namespace platform {
namespace {

using GraphStates = MixGraph;

TEST_F(GraphStates, FollowTheCallsThatChangeThem) {
    EXPECT_FALSE(isOpen(graph));
    open();
    EXPECT_TRUE(isOpen(graph));
    EXPECT_FALSE(isInitialized(graph));
    EXPECT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_TRUE(isInitialized(graph));
    EXPECT_FALSE(isRunning(graph));
    EXPECT_EQ(AUGraphStart(graph), noErr);
    EXPECT_TRUE(isRunning(graph));
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_FALSE(isRunning(graph));
    EXPECT_EQ(AUGraphUninitialize(graph), noErr);
    EXPECT_FALSE(isInitialized(graph));
    EXPECT_EQ(AUGraphClose(graph), noErr);
    EXPECT_FALSE(isOpen(graph));
}

TEST_F(GraphStates, MayBeAskedForTwice) {
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AUGraphUninitialize(graph), noErr);
    EXPECT_EQ(AUGraphClose(graph), noErr);
    EXPECT_EQ(AUGraphOpen(graph), noErr);
    EXPECT_EQ(AUGraphOpen(graph), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AUGraphStop(graph), noErr);
}

TEST_F(GraphStates, CannotBeSkipped) {
    EXPECT_EQ(AUGraphInitialize(graph), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(AUGraphStart(graph), kAudioUnitErr_Uninitialized);
    open();
    EXPECT_EQ(AUGraphStart(graph), kAudioUnitErr_Uninitialized);
}

TEST_F(GraphStates, ClosingARunningGraphStopsIt) {
    Callback callback;
    callback.body = constant(0.5F);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    EXPECT_EQ(heard(), 0.5F);
    EXPECT_EQ(AUGraphClose(graph), noErr);
    EXPECT_EQ(heard(), 0.0F);
    EXPECT_FALSE(isRunning(graph));
    EXPECT_EQ(AudioUnitInitialize(mixUnit), kAudioComponentErr_InstanceInvalidated);
    EXPECT_EQ(unitOf(graph, mixNode), nullptr);
}

TEST_F(GraphStates, UninitialisingARunningGraphStopsIt) {
    run();
    EXPECT_EQ(AUGraphUninitialize(graph), noErr);
    EXPECT_FALSE(isRunning(graph));
}

TEST_F(GraphStates, AClosedGraphOpensAgainWithItsNodesAndInteractions) {
    Callback callback;
    callback.body = constant(0.5F);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 3, callback), noErr);
    run();
    EXPECT_EQ(heard(), 0.5F);
    ASSERT_EQ(AUGraphClose(graph), noErr);
    EXPECT_EQ(interactions(graph), 2U);
    run();
    EXPECT_EQ(heard(), 0.5F);
}

TEST_F(GraphStates, DisposingOfARunningGraphEndsItsSound) {
    Callback callback;
    callback.body = constant(0.5F);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
    graph = nullptr;
    EXPECT_EQ(heard(), 0.0F);
    EXPECT_EQ(callback.calls, 0);
}

TEST_F(GraphStates, RunningFollowsTheOutputUnitItself) {
    run();
    EXPECT_EQ(AudioOutputUnitStop(outUnit), noErr);
    EXPECT_FALSE(isRunning(graph));
    EXPECT_EQ(AudioOutputUnitStart(outUnit), noErr);
    EXPECT_TRUE(isRunning(graph));
    EXPECT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AudioOutputUnitStop(outUnit), noErr);
}

TEST_F(GraphStates, AGraphCanBeStoppedFromItsOwnCallback) {
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                        AudioBufferList*) { return AUGraphStop(graph); };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    player.pump(64, 3);
    EXPECT_EQ(callback.calls, 1);
    EXPECT_FALSE(isRunning(graph));
}

TEST_F(GraphStates, AGraphCanBeDisposedOfFromItsOwnCallback) {
    Callback callback;
    callback.body = [&](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                        AudioBufferList* list) {
        std::fill_n(samples<float>(list), frames, 0.5F);
        return DisposeAUGraph(graph);
    };
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    player.pump(64, 3);
    EXPECT_EQ(callback.calls, 1);
    EXPECT_EQ(DisposeAUGraph(graph), kAUGraphErr_InvalidAudioUnit);
    graph = nullptr;
}

TEST(Graphs, WithoutAnOutputNodeCannotStart) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    addNode(graph, mixer());
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_EQ(AUGraphStart(graph), kAUGraphErr_OutputNodeErr);
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(Graphs, FailToInitialiseWithTheUnitsStatus) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    const AUNode node = addNode(graph, genericOutput());
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    auto format = stream_formats::floatPlanar(0, 2);
    ASSERT_EQ(setFormat(unitOf(graph, node), kAudioUnitScope_Input, 0, format), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), kAudioUnitErr_FormatNotSupported);
    EXPECT_FALSE(isInitialized(graph));
    format.mSampleRate = 8000;
    ASSERT_EQ(setFormat(unitOf(graph, node), kAudioUnitScope_Input, 0, format), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(GraphNodes, AreNumberedFrom1AndCounted) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    EXPECT_EQ(addNode(graph, mixer()), 1);
    EXPECT_EQ(addNode(graph, converter()), 2);
    EXPECT_EQ(addNode(graph, remoteIO()), 3);
    UInt32 count = 0;
    EXPECT_EQ(AUGraphGetNodeCount(graph, &count), noErr);
    EXPECT_EQ(count, 3U);
    AUNode node = 0;
    EXPECT_EQ(AUGraphGetIndNode(graph, 1, &node), noErr);
    EXPECT_EQ(node, 2);
    EXPECT_EQ(AUGraphGetIndNode(graph, 3, &node), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphRemoveNode(graph, 2), noErr);
    EXPECT_EQ(AUGraphRemoveNode(graph, 2), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphGetIndNode(graph, 1, &node), noErr);
    EXPECT_EQ(node, 3);
    EXPECT_EQ(addNode(graph, converter()), 4);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(GraphNodes, OnlyOneMayBeAnOutput) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    const AUNode first = addNode(graph, remoteIO());
    AUNode node = 77;
    const auto second = genericOutput();
    EXPECT_EQ(AUGraphAddNode(graph, &second, &node), kAUGraphErr_OutputNodeErr);
    EXPECT_EQ(node, 77);
    EXPECT_EQ(AUGraphRemoveNode(graph, first), noErr);
    EXPECT_EQ(AUGraphAddNode(graph, &second, &node), noErr);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(GraphNodes, OfUnknownComponentsAreRefused) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    AUNode node = 0;
    const auto unknown = description(kAudioUnitType_Effect, 0x64656C79);
    EXPECT_EQ(AUGraphAddNode(graph, &unknown, &node), kAUGraphErr_InvalidAudioUnit);
    EXPECT_EQ(AUGraphAddNode(graph, nullptr, &node), kAudio_ParamError);
    EXPECT_EQ(AUGraphAddNode(graph, &unknown, nullptr), kAudio_ParamError);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST(GraphNodes, HaveAUnitWhileTheGraphIsOpen) {
    AUGraph graph = nullptr;
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    const AUNode node = addNode(graph, mixer());
    AudioComponentDescription is{};
    auto* unit = reinterpret_cast<AudioUnit>(&is);
    EXPECT_EQ(AUGraphNodeInfo(graph, node, &is, &unit), noErr);
    EXPECT_EQ(is.componentSubType, static_cast<OSType>(kAudioUnitSubType_MultiChannelMixer));
    EXPECT_EQ(unit, nullptr);
    EXPECT_EQ(AUGraphNodeInfo(graph, node, nullptr, nullptr), noErr);
    EXPECT_EQ(AUGraphNodeInfo(graph, node + 1, &is, &unit), kAUGraphErr_NodeNotFound);
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    EXPECT_NE(unitOf(graph, node), nullptr);
    const AUNode later = addNode(graph, converter());
    EXPECT_NE(unitOf(graph, later), nullptr) << "an open graph makes the unit at once";
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

TEST_F(GraphStates, RemovingANodeDropsItsInteractionsAndItsUnit) {
    Callback callback;
    callback.body = constant(0.5F);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    run();
    ASSERT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AUGraphRemoveNode(graph, mixNode), noErr);
    EXPECT_EQ(interactions(graph), 0U);
    EXPECT_EQ(AudioUnitInitialize(mixUnit), kAudioComponentErr_InstanceInvalidated);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(heard(), 0.0F);
    EXPECT_EQ(get<OSStatus>(outUnit, kAudioUnitProperty_LastRenderError, 0, 0), noErr);
}

TEST_F(GraphStates, AUnitThatTheProgramDisposedOfIsNoUnitOfTheGraph) {
    run();
    ASSERT_EQ(AUGraphStop(graph), noErr);
    ASSERT_EQ(AudioComponentInstanceDispose(outUnit), noErr);
    EXPECT_EQ(AUGraphStart(graph), kAudioComponentErr_InstanceInvalidated);
    EXPECT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AUGraphUninitialize(graph), noErr);
    EXPECT_EQ(AUGraphClose(graph), noErr);
}

TEST_F(GraphStates, NotifiesComeAroundEachRenderOfTheOutput) {
    Callback notify;
    std::vector<AudioUnitRenderActionFlags> seen;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp&, UInt32 bus, UInt32,
                      AudioBufferList*) {
        EXPECT_EQ(bus, 0U);
        seen.push_back(flags);
        return OSStatus{noErr};
    };
    Callback track;
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, track), noErr);
    ASSERT_EQ(AUGraphAddRenderNotify(graph, Callback::proc, &notify), noErr);
    run();
    player.pump(64);
    EXPECT_EQ(seen, (std::vector<AudioUnitRenderActionFlags>{4, 8}));
    ASSERT_EQ(AudioUnitAddRenderNotify(outUnit, Callback::proc, &notify), noErr);
    player.pump(64);
    EXPECT_EQ(seen.size(), 6U) << "a notify of the graph and one of the unit are two";
    ASSERT_EQ(AUGraphRemoveRenderNotify(graph, Callback::proc, &notify), noErr);
    player.pump(64);
    EXPECT_EQ(seen.size(), 8U);
    EXPECT_EQ(AUGraphAddRenderNotify(graph, nullptr, nullptr), kAudio_ParamError);
    EXPECT_EQ(AUGraphRemoveRenderNotify(graph, nullptr, nullptr), kAudio_ParamError);
}

TEST_F(GraphStates, LoadIsMeasured) {
    Float32 load = -1;
    EXPECT_EQ(AUGraphGetCPULoad(graph, &load), noErr);
    EXPECT_EQ(load, 0);
    run();
    player.pump(64, 3);
    EXPECT_EQ(AUGraphGetCPULoad(graph, &load), noErr);
    EXPECT_GT(load, 0);
    Float32 most = -1;
    EXPECT_EQ(AUGraphGetMaxCPULoad(graph, &most), noErr);
    EXPECT_GE(most, load);
    EXPECT_EQ(AUGraphGetMaxCPULoad(graph, &most), noErr);
    EXPECT_EQ(most, 0);
    EXPECT_EQ(AUGraphGetCPULoad(graph, nullptr), kAudio_ParamError);
}

TEST_F(GraphStates, TheCapturedMixIsSixteenBitAt44100WhileTheDeviceIsNot) {
    // A private mix: every bus in its own format, heard by a notify that leaves only silence.
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    mixUnit = unitOf(graph, mixNode);
    AudioStreamBasicDescription format = stream_formats::int16Interleaved(44100, 2);
    format.mFormatFlags = kAudioFormatFlagIsSignedInteger;
    ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Output, 0, format), noErr);
    ASSERT_EQ(set(mixUnit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0,
                  UInt32{4096}),
              noErr);
    ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Input, 1, format), noErr);
    Callback track;
    track.body = [](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                    AudioBufferList* list) {
        std::fill_n(samples<std::int16_t>(list), 2 * frames, std::int16_t{-321});
        return OSStatus{noErr};
    };
    std::vector<std::int16_t> mixed;
    Callback notify;
    notify.body = [&](AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32,
                      UInt32 frames, AudioBufferList* list) {
        if ((flags & 0x108) == 8) {
            EXPECT_EQ(time.mHostTime, player.hostTime());
            EXPECT_EQ(list->mNumberBuffers, 1U);
            EXPECT_EQ(list->mBuffers[0].mDataByteSize, frames * 4);
            mixed.insert(mixed.end(), samples<std::int16_t>(list),
                         samples<std::int16_t>(list) + 2 * frames);
            std::fill_n(samples<std::int16_t>(list), 2 * frames, std::int16_t{0});
        }
        return OSStatus{noErr};
    };
    ASSERT_EQ(AudioUnitAddRenderNotify(mixUnit, Callback::proc, &notify), noErr);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, track), noErr);
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    player.pump(480, 100);
    EXPECT_EQ(mixed, std::vector<std::int16_t>(2 * 44100, -321));
    EXPECT_EQ(player.left, std::vector<float>(48000, 0.0F));
    ASSERT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 1), noErr);
    EXPECT_EQ(AUGraphUninitialize(graph), noErr);
    EXPECT_EQ(AUGraphClose(graph), noErr);
}

}  // namespace
}  // namespace platform
