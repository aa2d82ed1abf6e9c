#include "Host.h"

// Seven units are there already. The eighth output is a graph whose callback is set before the
// graph is opened. Later one of the seven goes, and the graph is stopped and started again.

void runHost(HostDevice& device) {
    AudioUnit units[7];
    for (AudioUnit& unit : units) {
        unit = newOutputUnit();
    }
    Tone tone;
    AUGraph graph = nullptr;
    check(NewAUGraph(&graph));
    const AUNode node = addOutputNode(graph);
    setNodeCallback(graph, node, tone.callback());
    check(AUGraphOpen(graph));
    setToneFormat(graph, node);
    check(AUGraphInitialize(graph));
    check(AUGraphStart(graph));
    device.pump(20);
    check(AUGraphStop(graph));
    device.pump(2);
    for (AudioUnit& unit : units) {
        check(AudioUnitUninitialize(unit));
        check(AudioComponentInstanceDispose(unit));
    }
    check(AUGraphStart(graph));
    device.pump(40);
    check(AUGraphStop(graph));
    check(DisposeAUGraph(graph));
}
