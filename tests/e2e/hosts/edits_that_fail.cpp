#include "WaitingGraph.h"

// Callbacks that wait for an update when another edit of the graph fails at its unit. What had been
// asked for before that one has reached the units then, what comes behind it waits on; an edit of a
// graph that stands still takes all along that waited, also when it fails itself. Each part plays
// 20 slices.

void runHost(HostDevice& device) {
    {
        WaitingGraph host(device);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        check(AUGraphConnectNodeInput(host.graph, host.mixer, 7, host.otherMixer, 0),
              kAudioUnitErr_InvalidElement);
        host.startUnit();
    }
    {
        WaitingGraph host(device);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        host.giveRefused(host.output, 5, kAudioUnitErr_InvalidElement);
        host.startUnit();
    }
    {
        // An update that fails for a connection.
        WaitingGraph host(device);
        check(AUGraphConnectNodeInput(host.graph, host.mixer, 7, host.otherMixer, 0));
        host.giveSecond();
        check(AUGraphUpdate(host.graph, nullptr), kAudioUnitErr_InvalidElement);
        device.pump(kPart);
        check(AUGraphUpdate(host.graph, nullptr));
        device.pump(kPart);
    }
    {
        // An update that fails for what comes behind the callback, and not for what came before.
        WaitingGraph host(device);
        setNodeCallback(host.graph, host.mixer, host.first.callback());
        host.giveSecond();
        host.giveRefused(host.mixer, 99);
        check(AUGraphUpdate(host.graph, nullptr), kAudioUnitErr_InvalidElement);
        device.pump(kPart);
        check(AUGraphUpdate(host.graph, nullptr));
        device.pump(kPart);
    }
    {
        // A start that fails is an update that failed.
        WaitingGraph host(device);
        host.giveRefused(host.mixer, 99);
        host.giveSecond();
        check(AUGraphStop(host.graph));
        check(AUGraphStart(host.graph), kAudioUnitErr_InvalidElement);
        host.startUnit();
        check(AUGraphUpdate(host.graph, nullptr));
        device.pump(kPart);
    }
}
