#include <array>

#include "Host.h"

// A host that changes the sound of a graph it was handed: it asks the graph for the callback that
// feeds the output node and sets one of its own, which calls that one.

namespace {

/// Plays what another callback renders, inverted.
class Inverter {
  public:
    explicit Inverter(const AURenderCallbackStruct& inner) : inner_(inner) {}
    [[nodiscard]] AURenderCallbackStruct callback() { return {render, this}; }
    [[nodiscard]] const AURenderCallbackStruct& inner() const { return inner_; }

  private:
    static OSStatus render(void* refCon, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* data) {
        const auto& inner = static_cast<Inverter*>(refCon)->inner_;
        const OSStatus status =
            inner.inputProc(inner.inputProcRefCon, flags, time, bus, frames, data);
        for (UInt32 k = 0; k < data->mNumberBuffers; ++k) {
            auto* const samples = static_cast<float*>(data->mBuffers[k].mData);
            for (UInt32 i = 0; i < frames; ++i) {
                samples[i] = -samples[i];
            }
        }
        return status;
    }
    AURenderCallbackStruct inner_;
};

AURenderCallbackStruct callbackOf(AUGraph graph, AUNode node) {
    std::array<AUNodeInteraction, 4> all{};
    UInt32 count = all.size();
    check(AUGraphGetNodeInteractions(graph, node, &count, all.data()));
    check(static_cast<OSStatus>(count), 1);
    return all[0].nodeInteraction.inputCallback.cback;
}

AURenderCallbackStruct callbackByIndex(AUGraph graph) {
    AUNodeInteraction first{};
    check(AUGraphGetInteractionInfo(graph, 0, &first));
    return first.nodeInteraction.inputCallback.cback;
}

}  // namespace

void runHost(HostDevice& device) {
    Tone tone;
    const auto [graph, node] = openOutputGraph(tone.callback());
    Inverter once(callbackOf(graph, node));
    setNodeCallback(graph, node, once.callback());
    playGraph(device, graph);
    // While it plays. What was read before the update is not what plays yet.
    Inverter twice(callbackByIndex(graph));
    setNodeCallback(graph, node, twice.callback());
    Inverter thrice(callbackOf(graph, node));
    device.pump(20);
    check(AUGraphUpdate(graph, nullptr));
    device.pump(20);
    setNodeCallback(graph, node, thrice.callback());
    check(AUGraphUpdate(graph, nullptr));
    device.pump(20);
    // Set back, as it was read.
    setNodeCallback(graph, node, thrice.inner());
    check(AUGraphUpdate(graph, nullptr));
    device.pump(20);
    endGraph(graph);
}
