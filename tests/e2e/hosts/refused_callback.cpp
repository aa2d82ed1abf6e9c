#include "Host.h"

// A mixer feeds the output node; a callback for that node is refused, and the graph updated.

void runHost(HostDevice& device) {
    Tone tone;
    AUGraph graph = nullptr;
    check(NewAUGraph(&graph));
    const AUNode output = addOutputNode(graph);
    const AudioComponentDescription wanted{kAudioUnitType_Mixer,
                                           kAudioUnitSubType_MultiChannelMixer,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AUNode mixer = 0;
    check(AUGraphAddNode(graph, &wanted, &mixer));
    check(AUGraphConnectNodeInput(graph, mixer, 0, output, 0));
    check(AUGraphOpen(graph));
    setToneFormat(graph, mixer);
    setNodeCallback(graph, mixer, tone.callback());
    check(AUGraphInitialize(graph));
    check(AUGraphStart(graph));
    device.pump(20);
    Tone refused(5);
    setNodeCallback(graph, output, refused.callback(), kAUGraphErr_InvalidConnection);
    check(AUGraphUpdate(graph, nullptr));
    device.pump(40);
    check(AUGraphStop(graph));
    check(DisposeAUGraph(graph));
}
