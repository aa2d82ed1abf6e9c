#include <algorithm>

#include "graph/GraphFixture.h"

namespace platform {
namespace {

using GraphEdits = MixGraph;

TEST_F(GraphEdits, UnknownNodesAreNotFound) {
    Callback callback;
    EXPECT_EQ(AUGraphConnectNodeInput(graph, 9, 0, outNode, 0), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, mixNode, 0, 9, 0), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(setNodeCallback(graph, 9, 0, callback), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, 9, 0), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphRemoveNode(graph, 9), kAUGraphErr_NodeNotFound);
    UInt32 count = 1;
    AUNodeInteraction interaction{};
    EXPECT_EQ(AUGraphCountNodeInteractions(graph, 9, &count), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphGetNodeInteractions(graph, 9, &count, &interaction), kAUGraphErr_NodeNotFound);
    EXPECT_EQ(AUGraphSetNodeInputCallback(graph, mixNode, 0, nullptr), kAudio_ParamError);
}

TEST_F(GraphEdits, AnInputHoldsOneKindOfInteraction) {
    Callback callback;
    EXPECT_EQ(setNodeCallback(graph, outNode, 0, callback), kAUGraphErr_InvalidConnection);
    EXPECT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    const AUNode other = addNode(graph, converter());
    EXPECT_EQ(AUGraphConnectNodeInput(graph, other, 0, mixNode, 0), kAUGraphErr_InvalidConnection);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, other, 0, mixNode, 0), noErr);
}

TEST_F(GraphEdits, AConnectionAgainIsNoErrorButAnotherOneIs) {
    EXPECT_EQ(AUGraphConnectNodeInput(graph, mixNode, 0, outNode, 0), noErr);
    EXPECT_EQ(interactions(graph), 1U);
    const AUNode other = addNode(graph, converter());
    EXPECT_EQ(AUGraphConnectNodeInput(graph, other, 0, outNode, 0), kAUGraphErr_InvalidConnection);
    EXPECT_EQ(AUGraphConnectNodeInput(graph, mixNode, 0, other, 0), kAUGraphErr_InvalidConnection)
        << "the output feeds somebody already";
    EXPECT_EQ(AUGraphConnectNodeInput(graph, other, 0, other, 0), kAUGraphErr_InvalidConnection);
}

TEST_F(GraphEdits, ACallbackReplacesACallback) {
    Callback first;
    Callback second;
    second.body = constant(0.25F);
    EXPECT_EQ(setNodeCallback(graph, mixNode, 0, first), noErr);
    EXPECT_EQ(setNodeCallback(graph, mixNode, 0, second), noErr);
    EXPECT_EQ(interactions(graph), 2U);
    run();
    EXPECT_EQ(heard(), 0.25F);
    EXPECT_EQ(first.calls, 0);
}

TEST_F(GraphEdits, ANullCallbackTakesTheOldOneAway) {
    Callback first;
    const AURenderCallbackStruct none{};
    EXPECT_EQ(AUGraphSetNodeInputCallback(graph, mixNode, 0, &none), noErr);
    EXPECT_EQ(setNodeCallback(graph, mixNode, 0, first), noErr);
    EXPECT_EQ(AUGraphSetNodeInputCallback(graph, mixNode, 0, &none), noErr);
    EXPECT_EQ(interactions(graph), 1U);
    run();
    heard();
    EXPECT_EQ(first.calls, 0);
}

TEST_F(GraphEdits, DisconnectingNothingChangesNothing) {
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
    EXPECT_EQ(interactions(graph), 1U);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, outNode, 0), noErr);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, outNode, 0), noErr);
    EXPECT_EQ(interactions(graph), 0U);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, 99, 0), kAUGraphErr_NodeNotFound);
}

TEST_F(GraphEdits, InteractionsCanBeAskedFor) {
    Callback callback;
    ASSERT_EQ(setNodeCallback(graph, mixNode, 5, callback), noErr);
    AUNodeInteraction interaction{};
    ASSERT_EQ(AUGraphGetInteractionInfo(graph, 0, &interaction), noErr);
    EXPECT_EQ(interaction.nodeInteractionType, static_cast<UInt32>(kAUNodeInteraction_Connection));
    EXPECT_EQ(interaction.nodeInteraction.connection.sourceNode, mixNode);
    EXPECT_EQ(interaction.nodeInteraction.connection.destNode, outNode);
    ASSERT_EQ(AUGraphGetInteractionInfo(graph, 1, &interaction), noErr);
    EXPECT_EQ(interaction.nodeInteractionType,
              static_cast<UInt32>(kAUNodeInteraction_InputCallback));
    EXPECT_EQ(interaction.nodeInteraction.inputCallback.destNode, mixNode);
    EXPECT_EQ(interaction.nodeInteraction.inputCallback.destInputNumber, 5U);
    EXPECT_EQ(interaction.nodeInteraction.inputCallback.cback.inputProcRefCon, &callback);
    EXPECT_EQ(AUGraphGetInteractionInfo(graph, 2, &interaction), kAudio_ParamError);

    UInt32 count = 0;
    EXPECT_EQ(AUGraphCountNodeInteractions(graph, mixNode, &count), noErr);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(AUGraphCountNodeInteractions(graph, outNode, &count), noErr);
    EXPECT_EQ(count, 1U);
    AUNodeInteraction all[3] = {};
    count = 3;
    EXPECT_EQ(AUGraphGetNodeInteractions(graph, mixNode, &count, all), noErr);
    EXPECT_EQ(count, 2U);
    count = 1;
    EXPECT_EQ(AUGraphGetNodeInteractions(graph, mixNode, &count, all), noErr);
    EXPECT_EQ(count, 1U);
}

TEST_F(GraphEdits, ClearingTakesAllAway) {
    Callback callback;
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    EXPECT_EQ(AUGraphClearConnections(graph), noErr);
    EXPECT_EQ(interactions(graph), 0U);
    run();
    heard();
    EXPECT_EQ(callback.calls, 0);
}

TEST_F(GraphEdits, UnitErrorsSurfaceAtInitialise) {
    const AUNode one = addNode(graph, converter());
    const AUNode two = addNode(graph, converter());
    EXPECT_EQ(AUGraphConnectNodeInput(graph, one, 0, two, 1), noErr);
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(AUGraphInitialize(graph), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(AUGraphDisconnectNodeInput(graph, two, 1), noErr);
    EXPECT_EQ(AUGraphInitialize(graph), noErr);
}

TEST_F(GraphEdits, InitialiseCopiesTheFormatOfAConnection) {
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    const auto format = stream_formats::int16Interleaved(32000, 2);
    ASSERT_EQ(setFormat(unitOf(graph, mixNode), kAudioUnitScope_Output, 0, format), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    const auto copied = get<AudioStreamBasicDescription>(
        unitOf(graph, outNode), kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0);
    EXPECT_EQ(copied.mSampleRate, 32000);
    EXPECT_EQ(copied.mBytesPerFrame, 4U);
}

TEST_F(GraphEdits, UnitsWithoutInteractionsAreInitialisedWhenTheyGetOne) {
    const AUNode later = addNode(graph, converter());
    open();
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    AudioTimeStamp time{};
    AudioBufferList list{1, {{1, 0, nullptr}}};
    EXPECT_EQ(AudioUnitRender(unitOf(graph, later), nullptr, &time, 0, 64, &list),
              kAudioUnitErr_Uninitialized);
    ASSERT_EQ(AUGraphConnectNodeInput(graph, later, 0, mixNode, 2), noErr);
    EXPECT_EQ(AudioUnitRender(unitOf(graph, later), nullptr, &time, 0, 64, &list),
              kAudio_ParamError)
        << "initialised now: it is the list that is wrong";
}

TEST_F(GraphEdits, OnAStoppedGraphWorkAtOnce) {
    Callback callback;
    callback.body = constant(0.5F);
    open();
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, callback), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(heard(), 0.5F);
    ASSERT_EQ(AUGraphStop(graph), noErr);
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(heard(), 0.0F);
}

TEST_F(GraphEdits, OnAStoppedGraphAnswerWithTheUnitsErrorAndLeaveNothing) {
    Callback callback;
    open();
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    EXPECT_EQ(setNodeCallback(graph, mixNode, 50, callback), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(interactions(graph), 1U);
    EXPECT_EQ(AUGraphUpdate(graph, nullptr), noErr);
}

TEST_F(GraphEdits, MadeBetweenUninitialiseAndInitialiseWork) {
    Callback first;
    Callback second;
    first.body = constant(0.5F);
    second.body = constant(0.25F);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 0, first), noErr);
    run();
    ASSERT_EQ(AUGraphUninitialize(graph), noErr);
    ASSERT_EQ(AUGraphDisconnectNodeInput(graph, mixNode, 0), noErr);
    ASSERT_EQ(setNodeCallback(graph, mixNode, 1, second), noErr);
    ASSERT_EQ(AUGraphInitialize(graph), noErr);
    ASSERT_EQ(AUGraphStart(graph), noErr);
    EXPECT_EQ(heard(), 0.25F);
    EXPECT_EQ(first.calls, 0);
}

TEST_F(GraphEdits, TheOutputNodeOfARunningGraphStays) {
    run();
    EXPECT_EQ(AUGraphRemoveNode(graph, outNode), kAUGraphErr_OutputNodeErr);
    ASSERT_EQ(AUGraphStop(graph), noErr);
    EXPECT_EQ(AUGraphRemoveNode(graph, outNode), noErr);
    EXPECT_EQ(AUGraphStart(graph), kAUGraphErr_OutputNodeErr);
}

TEST_F(GraphEdits, TheMicrophoneMayBePlayedThrough) {
    AUGraph through = nullptr;
    ASSERT_EQ(NewAUGraph(&through), noErr);
    const AUNode node = addNode(through, remoteIO());
    EXPECT_EQ(AUGraphConnectNodeInput(through, node, 1, node, 0), noErr);
    ASSERT_EQ(AUGraphOpen(through), noErr);
    ASSERT_EQ(set(unitOf(through, node), kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input,
                  1, UInt32{1}),
              noErr);
    const auto speak = [](void*, UInt32 channels, UInt32 frames, float* const* planes) {
        for (UInt32 channel = 0; channel < channels; ++channel) {
            std::fill_n(planes[channel], frames, 0.125F);
        }
    };
    ASSERT_EQ(TQManualDeviceSetInput(speak, nullptr), noErr);
    ASSERT_EQ(AUGraphInitialize(through), noErr);
    ASSERT_EQ(AUGraphStart(through), noErr);
    EXPECT_EQ(heard(), 0.125F);
    TQManualDeviceSetInput(nullptr, nullptr);
    EXPECT_EQ(DisposeAUGraph(through), noErr);
}

}  // namespace
}  // namespace platform
