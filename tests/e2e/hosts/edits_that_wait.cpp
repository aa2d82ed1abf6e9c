#include "Host.h"

// Callbacks that a graph has been given and its output unit has not, in all the ways in which they
// reach it after all: the graph is initialised again, or another edit of a graph that stands still
// takes those along that waited. The host starts and stops the unit by itself, so that no start of
// the graph tells of it. Each part plays 20 slices.

namespace {

constexpr int kPart = 20;

/// A graph with a mixer that plays nothing by itself, running.
struct WaitingGraph {
    explicit WaitingGraph(HostDevice& hostDevice) : device(hostDevice) {
        check(NewAUGraph(&graph));
        output = addOutputNode(graph);
        const AudioComponentDescription wanted{kAudioUnitType_Mixer,
                                               kAudioUnitSubType_MultiChannelMixer,
                                               kAudioUnitManufacturer_Apple, 0, 0};
        check(AUGraphAddNode(graph, &wanted, &mixer));
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
    void startUnit() {
        check(AudioUnitInitialize(unit));
        check(AudioOutputUnitStart(unit));
        device.pump(kPart);
    }

    HostDevice& device;
    AUGraph graph = nullptr;
    AUNode output = 0;
    AUNode mixer = 0;
    AudioUnit unit = nullptr;
    Tone first;
    Tone second{11};
};

}  // namespace

void runHost(HostDevice& device) {
    {
        // Given while the graph is uninitialised: the unit goes on with the first until the graph
        // is initialised, stopped or playing. An update does nothing before.
        WaitingGraph host(device);
        check(AUGraphUninitialize(host.graph));
        host.giveSecond();
        check(AUGraphUpdate(host.graph, nullptr));
        host.startUnit();
        check(AudioOutputUnitStop(host.unit));
        check(AUGraphInitialize(host.graph));
        host.startUnit();
    }
    {
        WaitingGraph host(device);
        check(AUGraphUninitialize(host.graph));
        host.startUnit();
        host.giveSecond();
        device.pump(kPart);
        check(AUGraphInitialize(host.graph));
        device.pump(kPart);
    }
    {
        // Given while the graph runs, which is never updated.
        WaitingGraph host(device);
        host.giveSecond();
        device.pump(kPart);
        check(AUGraphUninitialize(host.graph));
        check(AUGraphInitialize(host.graph));
        host.startUnit();
    }
    {
        WaitingGraph host(device);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        host.startUnit();
        check(AudioOutputUnitStop(host.unit));
        setNodeCallback(host.graph, host.mixer, host.first.callback());
        host.startUnit();
    }
    {
        WaitingGraph host(device);
        setNodeCallback(host.graph, host.mixer, host.first.callback());
        check(AUGraphUpdate(host.graph, nullptr));
        host.giveSecond();
        check(AUGraphStop(host.graph));
        check(AUGraphDisconnectNodeInput(host.graph, host.mixer, 0));
        host.startUnit();
    }
}
