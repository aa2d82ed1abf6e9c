#pragma once

#include "Host.h"

constexpr int kPart = 20;

/// A graph that plays, with two mixers that play nothing by themselves. The host starts and stops
/// the output unit by itself, so that no start of the graph tells of what reached the unit.
struct WaitingGraph {
    explicit WaitingGraph(HostDevice& hostDevice) : device(hostDevice) {
        check(NewAUGraph(&graph));
        output = addOutputNode(graph);
        const AudioComponentDescription wanted{kAudioUnitType_Mixer,
                                               kAudioUnitSubType_MultiChannelMixer,
                                               kAudioUnitManufacturer_Apple, 0, 0};
        check(AUGraphAddNode(graph, &wanted, &mixer));
        check(AUGraphAddNode(graph, &wanted, &otherMixer));
        check(AUGraphOpen(graph));
        setToneFormat(graph, output);
        check(AUGraphNodeInfo(graph, output, nullptr, &unit));
        setNodeCallback(graph, output, first.callback());
        playGraph(device, graph);
    }
    WaitingGraph(const WaitingGraph&) = delete;
    WaitingGraph& operator=(const WaitingGraph&) = delete;
    ~WaitingGraph() { endGraph(graph); }

    void giveSecond() { setNodeCallback(graph, output, second.callback()); }
    /// On an input that the node's unit does not have, which is found when it gets there.
    void giveRefused(AUNode node, UInt32 input, OSStatus expected = noErr) {
        const AURenderCallbackStruct callback = refused.callback();
        check(AUGraphSetNodeInputCallback(graph, node, input, &callback), expected);
    }
    void startUnit() {
        check(AudioUnitInitialize(unit));
        check(AudioOutputUnitStart(unit));
        device.pump(kPart);
    }

    HostDevice& device;
    AUGraph graph = nullptr;
    AUNode output = 0;
    AUNode mixer = 0;
    AUNode otherMixer = 0;
    AudioUnit unit = nullptr;
    Tone first;
    Tone second{11};
    Tone refused{23};
};
