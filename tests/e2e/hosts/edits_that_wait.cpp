#include "WaitingGraph.h"

// Callbacks that a graph has been given and its output unit has not, in all the ways in which they
// reach it after all: the graph is initialised again, or another edit of a graph that stands still
// takes those along that waited. The host starts and stops the unit by itself, so that no start of
// the graph tells of it. Each part plays 20 slices.

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
    {
        WaitingGraph host(device);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        check(AUGraphConnectNodeInput(host.graph, host.mixer, 0, host.otherMixer, 0));
        host.startUnit();
    }
    {
        // What waited when all was cleared is not waited for any more: the second, which comes
        // before the refused one, is there though the graph's initialisation fails.
        WaitingGraph host(device);
        setNodeCallback(host.graph, host.mixer, host.first.callback());
        check(AUGraphStop(host.graph));
        check(AUGraphClearConnections(host.graph));
        check(AUGraphUninitialize(host.graph));
        host.giveSecond();
        host.giveRefused(host.output, 5);
        check(AUGraphInitialize(host.graph), kAudioUnitErr_InvalidElement);
        host.startUnit();
    }
    {
        // What the removed mixer fed is disconnected from it.
        WaitingGraph host(device);
        check(AUGraphStop(host.graph));
        check(AUGraphConnectNodeInput(host.graph, host.mixer, 0, host.otherMixer, 0));
        check(AUGraphStart(host.graph));
        host.giveSecond();
        device.pump(kPart);
        check(AUGraphStop(host.graph));
        check(AUGraphRemoveNode(host.graph, host.mixer));
        host.startUnit();
    }
    {
        // One that waited is dropped and one comes: the graph has as many as before.
        WaitingGraph host(device);
        host.giveRefused(host.output, 5);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        check(AUGraphConnectNodeInput(host.graph, host.mixer, 0, host.otherMixer, 0));
        host.startUnit();
    }
    {
        // Nothing is taken away where nothing stands, and nothing is taken along: the first plays.
        WaitingGraph host(device);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        setNodeCallback(host.graph, host.mixer, AURenderCallbackStruct{});
        host.startUnit();
    }
}
