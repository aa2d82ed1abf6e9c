#include "Host.h"

// The graph is opened while it is empty.

void runHost(HostDevice& device) {
    Tone tone;
    AUGraph graph = nullptr;
    check(NewAUGraph(&graph));
    check(AUGraphOpen(graph));
    const AUNode node = addOutputNode(graph);
    setToneFormat(graph, node);
    setNodeCallback(graph, node, tone.callback());
    check(AUGraphInitialize(graph));
    check(AUGraphStart(graph));
    device.pump(40);
    check(AUGraphStop(graph));
    check(AUGraphUninitialize(graph));
    // Another output node takes the first one's place.
    check(AUGraphRemoveNode(graph, node));
    Tone other(7);
    const AUNode second = addOutputNode(graph);
    setToneFormat(graph, second);
    setNodeCallback(graph, second, other.callback());
    check(AUGraphInitialize(graph));
    check(AUGraphStart(graph));
    device.pump(40);
    check(AUGraphStop(graph));
    check(DisposeAUGraph(graph));
}
