#include "Host.h"

// A unit and a graph play already when the library is opened; later they stop and start again.

void runHost(HostDevice& device) {
    Tone tone;
    Tone other(3);
    AudioUnit unit = newOutputUnit();
    setCallback(unit, tone.callback());
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    AUGraph graph = nullptr;
    check(NewAUGraph(&graph));
    const AUNode node = addOutputNode(graph);
    setNodeCallback(graph, node, other.callback());
    check(AUGraphOpen(graph));
    setToneFormat(graph, node);
    check(AUGraphInitialize(graph));
    check(AUGraphStart(graph));
    device.pump(20);
    device.openLibrary();
    device.pump(20);
    check(AudioOutputUnitStop(unit));
    check(AUGraphStop(graph));
    device.pump(2);
    check(AudioOutputUnitStart(unit));
    device.pump(30);
    check(AudioOutputUnitStop(unit));
    check(AUGraphStart(graph));
    device.pump(30);
    check(AUGraphStop(graph));
    check(DisposeAUGraph(graph));
    check(AudioUnitUninitialize(unit));
    check(AudioComponentInstanceDispose(unit));
}
