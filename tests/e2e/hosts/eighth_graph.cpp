#include "Host.h"

// Seven units are there already. The eighth output is a graph whose callback is set before the
// graph is opened. Later one of the seven goes, and the graph is stopped and started again.

void runHost(HostDevice& device) {
    AudioUnit units[7];
    for (AudioUnit& unit : units) {
        unit = newOutputUnit();
    }
    Tone tone;
    AUGraph graph = openOutputGraph(tone.callback()).graph;
    playGraph(device, graph);
    check(AUGraphStop(graph));
    device.pump(2);
    for (AudioUnit& unit : units) {
        check(AudioUnitUninitialize(unit));
        check(AudioComponentInstanceDispose(unit));
    }
    check(AUGraphStart(graph));
    device.pump(40);
    endGraph(graph);
}
