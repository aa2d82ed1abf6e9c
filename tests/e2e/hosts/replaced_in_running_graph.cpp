#include "Host.h"

// A running graph gets another callback: the old one plays until the graph is updated. Then none.

void runHost(HostDevice& device) {
    Tone tone;
    Tone other(11);
    AUGraph graph = nullptr;
    check(NewAUGraph(&graph));
    const AUNode node = addOutputNode(graph);
    check(AUGraphOpen(graph));
    setToneFormat(graph, node);
    setNodeCallback(graph, node, tone.callback());
    playGraph(device, graph);
    setNodeCallback(graph, node, other.callback());
    device.pump(20);
    check(AUGraphUpdate(graph, nullptr));
    device.pump(20);
    setNodeCallback(graph, node, {nullptr, nullptr});
    device.pump(20);
    check(AUGraphUpdate(graph, nullptr));
    device.pump(5);
    setNodeCallback(graph, node, tone.callback());
    device.pump(5);
    check(AUGraphStop(graph));
    check(AUGraphStart(graph));
    device.pump(20);
    endGraph(graph);
}
