#include "Host.h"

// The callback is set after the first open; then the graph is closed and opened again.

void runHost(HostDevice& device) {
    Tone tone;
    AUGraph graph = nullptr;
    check(NewAUGraph(&graph));
    const AUNode node = addOutputNode(graph);
    check(AUGraphOpen(graph));
    setNodeCallback(graph, node, tone.callback());
    // Opening what is open changes nothing.
    check(AUGraphOpen(graph));
    for (int i = 0; i < 3; ++i) {
        setToneFormat(graph, node);
        check(AUGraphInitialize(graph));
        check(AUGraphStart(graph));
        device.pump(40);
        check(AUGraphStop(graph));
        check(AUGraphUninitialize(graph));
        check(AUGraphClose(graph));
        check(AUGraphOpen(graph));
    }
    check(DisposeAUGraph(graph));
}
