#pragma once

#include "PlatformFixture.h"
#include "StreamFormats.h"

namespace platform {

inline AUNode addNode(AUGraph graph, const AudioComponentDescription& wanted) {
    AUNode node = -1;
    EXPECT_EQ(AUGraphAddNode(graph, &wanted, &node), noErr);
    return node;
}

inline AudioUnit unitOf(AUGraph graph, AUNode node) {
    AudioUnit unit = nullptr;
    EXPECT_EQ(AUGraphNodeInfo(graph, node, nullptr, &unit), noErr);
    return unit;
}

inline OSStatus setNodeCallback(AUGraph graph, AUNode node, UInt32 input, Callback& callback) {
    const AURenderCallbackStruct structure = callback.structure();
    return AUGraphSetNodeInputCallback(graph, node, input, &structure);
}

inline bool isRunning(AUGraph graph) {
    Boolean running = 0;
    EXPECT_EQ(AUGraphIsRunning(graph, &running), noErr);
    return running != 0;
}
inline bool isOpen(AUGraph graph) {
    Boolean open = 0;
    EXPECT_EQ(AUGraphIsOpen(graph, &open), noErr);
    return open != 0;
}
inline bool isInitialized(AUGraph graph) {
    Boolean initialized = 0;
    EXPECT_EQ(AUGraphIsInitialized(graph, &initialized), noErr);
    return initialized != 0;
}

inline UInt32 interactions(AUGraph graph) {
    UInt32 count = 99;
    EXPECT_EQ(AUGraphGetNumberOfInteractions(graph, &count), noErr);
    return count;
}

/// Plays a constant in the first channel.
inline Callback::Body constant(float value) {
    return [value](AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32 frames,
                   AudioBufferList* list) {
        std::fill_n(samples<float>(list), frames, value);
        return OSStatus{noErr};
    };
}

/// A graph of a mixer that feeds an output, not opened yet.
class MixGraph : public testing::Test {
  protected:
    MixGraph() {
        EXPECT_EQ(NewAUGraph(&graph), noErr);
        mixNode = addNode(graph, mixer());
        outNode = addNode(graph, remoteIO());
        EXPECT_EQ(AUGraphConnectNodeInput(graph, mixNode, 0, outNode, 0), noErr);
    }
    ~MixGraph() override {
        if (graph != nullptr) {
            DisposeAUGraph(graph);
        }
    }
    /// Opens with all formats at the device's rate, so that constants come out as they are.
    void open() {
        ASSERT_EQ(AUGraphOpen(graph), noErr);
        mixUnit = unitOf(graph, mixNode);
        outUnit = unitOf(graph, outNode);
        const auto format = stream_formats::floatPlanar(deviceRate, 2);
        ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Output, 0, format), noErr);
        for (UInt32 bus = 0; bus < 8; ++bus) {
            ASSERT_EQ(setFormat(mixUnit, kAudioUnitScope_Input, bus, format), noErr);
        }
    }
    void run() {
        open();
        ASSERT_EQ(AUGraphInitialize(graph), noErr);
        ASSERT_EQ(AUGraphStart(graph), noErr);
    }
    float heard() {
        player.left.clear();
        player.pump(64);
        return player.left.back();
    }

    Player player;
    AUGraph graph = nullptr;
    AUNode mixNode = 0;
    AUNode outNode = 0;
    AudioUnit mixUnit = nullptr;
    AudioUnit outUnit = nullptr;
};

}  // namespace platform
