#include "Host.h"

// What feeds a unit or a graph's output node becomes something else while it plays: 20 slices of
// one source, 20 of the next.

namespace {

constexpr int kSlices = 20;

struct MixedGraph {
    AUGraph graph = nullptr;
    AUNode mixer = 0;
    AUNode output = 0;

    explicit MixedGraph(Tone& mixed) {
        check(NewAUGraph(&graph));
        const AudioComponentDescription wanted{kAudioUnitType_Mixer,
                                               kAudioUnitSubType_MultiChannelMixer,
                                               kAudioUnitManufacturer_Apple, 0, 0};
        check(AUGraphAddNode(graph, &wanted, &mixer));
        output = addOutputNode(graph);
        check(AUGraphOpen(graph));
        setToneFormat(graph, mixer);
        setToneFormat(graph, output);
        AudioUnit unit = nullptr;
        check(AUGraphNodeInfo(graph, mixer, nullptr, &unit));
        const AudioStreamBasicDescription format = toneFormat();
        check(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0,
                                   &format, sizeof(format)));
        setNodeCallback(graph, mixer, mixed.callback());
    }
    void start() const {
        check(AUGraphInitialize(graph));
        check(AUGraphStart(graph));
    }
    void end() const {
        check(AUGraphStop(graph));
        check(AUGraphUninitialize(graph));
        check(DisposeAUGraph(graph));
    }
};

void callbackBecomesConnectionAndBack(HostDevice& device) {
    Tone own(1);
    Tone mixed(2);
    const MixedGraph host(mixed);
    setNodeCallback(host.graph, host.output, own.callback());
    host.start();
    device.pump(kSlices);
    check(AUGraphDisconnectNodeInput(host.graph, host.output, 0));
    check(AUGraphConnectNodeInput(host.graph, host.mixer, 0, host.output, 0));
    check(AUGraphUpdate(host.graph, nullptr));
    device.pump(kSlices);
    check(AUGraphDisconnectNodeInput(host.graph, host.output, 0));
    setNodeCallback(host.graph, host.output, own.callback());
    check(AUGraphUpdate(host.graph, nullptr));
    device.pump(kSlices);
    host.end();
}

AudioUnit playing(Tone& tone) {
    AudioUnit unit = newOutputUnit();
    setCallback(unit, tone.callback());
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    return unit;
}

void end(AudioUnit unit) {
    check(AudioOutputUnitStop(unit));
    check(AudioUnitUninitialize(unit));
    check(AudioComponentInstanceDispose(unit));
}

void callbackOnTheOutputScope(HostDevice& device) {
    Tone own(3);
    Tone other(4);
    AudioUnit unit = playing(own);
    device.pump(kSlices);
    const AURenderCallbackStruct callback = other.callback();
    check(AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Output,
                               0, &callback, sizeof(callback)));
    device.pump(kSlices);
    end(unit);
}

}  // namespace

void runHost(HostDevice& device) {
    callbackBecomesConnectionAndBack(device);
    callbackOnTheOutputScope(device);
}
