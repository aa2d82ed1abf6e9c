// The C functions of graphs. The library itself never calls them.

#include <cstdio>

#include "component/Guarded.h"
#include "component/Status.h"
#include "graph/Graph.h"

using namespace tqplatform;

namespace {

/// Runs a call on a graph; kAudio_ParamError unless `isValid`, which says that no pointer that
/// the call needs is null.
template <class Call>
OSStatus withGraph(AUGraph handle, bool isValid, const Call& call) noexcept {
    if (handle == nullptr || !isValid) {
        return kAudio_ParamError;
    }
    const GraphTable::Access graph(graphs(), handle);
    if (!graph) {
        return kAUGraphErr_InvalidAudioUnit;
    }
    return guarded([&] { return call(*graph); });
}

}  // namespace

extern "C" {

OSStatus NewAUGraph(AUGraph* outGraph) {
    if (outGraph == nullptr) {
        return kAudio_ParamError;
    }
    *outGraph = nullptr;
    return guarded([&] {
        *outGraph = static_cast<AUGraph>(graphs().add(std::make_unique<Graph>()));
        return okOr(*outGraph != nullptr, kAudio_MemFullError);
    });
}

OSStatus DisposeAUGraph(AUGraph inGraph) {
    if (inGraph == nullptr) {
        return kAudio_ParamError;
    }
    return guarded([&] {
        return okOr(graphs().remove(inGraph, Unit::mayWait()), kAUGraphErr_InvalidAudioUnit);
    });
}

OSStatus AUGraphAddNode(AUGraph inGraph, const AudioComponentDescription* inDescription,
                        AUNode* outNode) {
    return withGraph(inGraph, inDescription != nullptr && outNode != nullptr,
                     [&](Graph& graph) { return graph.addNode(*inDescription, *outNode); });
}

OSStatus AUGraphRemoveNode(AUGraph inGraph, AUNode inNode) {
    return withGraph(inGraph, true, [&](Graph& graph) { return graph.removeNode(inNode); });
}

OSStatus AUGraphGetNodeCount(AUGraph inGraph, UInt32* outNumberOfNodes) {
    return withGraph(inGraph, outNumberOfNodes != nullptr,
                     [&](Graph& graph) { return graph.nodeCount(*outNumberOfNodes); });
}

OSStatus AUGraphGetIndNode(AUGraph inGraph, UInt32 inIndex, AUNode* outNode) {
    return withGraph(inGraph, outNode != nullptr,
                     [&](Graph& graph) { return graph.indexedNode(inIndex, *outNode); });
}

OSStatus AUGraphNodeInfo(AUGraph inGraph, AUNode inNode, AudioComponentDescription* outDescription,
                         AudioUnit* outAudioUnit) {
    return withGraph(inGraph, true, [&](Graph& graph) {
        return graph.nodeInfo(inNode, outDescription, outAudioUnit);
    });
}

OSStatus AUGraphConnectNodeInput(AUGraph inGraph, AUNode inSourceNode, UInt32 inSourceOutputNumber,
                                 AUNode inDestNode, UInt32 inDestInputNumber) {
    return withGraph(inGraph, true, [&](Graph& graph) {
        return graph.connect({inSourceNode, inSourceOutputNumber, inDestNode, inDestInputNumber});
    });
}

OSStatus AUGraphSetNodeInputCallback(AUGraph inGraph, AUNode inDestNode, UInt32 inDestInputNumber,
                                     const AURenderCallbackStruct* inInputCallback) {
    return withGraph(inGraph, inInputCallback != nullptr, [&](Graph& graph) {
        return graph.setInputCallback(inDestNode, inDestInputNumber, *inInputCallback);
    });
}

OSStatus AUGraphDisconnectNodeInput(AUGraph inGraph, AUNode inDestNode, UInt32 inDestInputNumber) {
    return withGraph(inGraph, true,
                     [&](Graph& graph) { return graph.disconnect(inDestNode, inDestInputNumber); });
}

OSStatus AUGraphClearConnections(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.clearConnections(); });
}

OSStatus AUGraphGetNumberOfInteractions(AUGraph inGraph, UInt32* outNumInteractions) {
    return withGraph(inGraph, outNumInteractions != nullptr,
                     [&](Graph& graph) { return graph.interactionCount(*outNumInteractions); });
}

OSStatus AUGraphGetInteractionInfo(AUGraph inGraph, UInt32 inInteractionIndex,
                                   AUNodeInteraction* outInteraction) {
    return withGraph(inGraph, outInteraction != nullptr, [&](Graph& graph) {
        return graph.interactionInfo(inInteractionIndex, *outInteraction);
    });
}

OSStatus AUGraphCountNodeInteractions(AUGraph inGraph, AUNode inNode, UInt32* outNumInteractions) {
    return withGraph(inGraph, outNumInteractions != nullptr, [&](Graph& graph) {
        return graph.nodeInteractionCount(inNode, *outNumInteractions);
    });
}

OSStatus AUGraphGetNodeInteractions(AUGraph inGraph, AUNode inNode, UInt32* ioNumInteractions,
                                    AUNodeInteraction* outInteractions) {
    return withGraph(inGraph, ioNumInteractions != nullptr && outInteractions != nullptr,
                     [&](Graph& graph) {
                         return graph.nodeInteractions(inNode, *ioNumInteractions, outInteractions);
                     });
}

OSStatus AUGraphUpdate(AUGraph inGraph, Boolean* outIsUpdated) {
    return withGraph(inGraph, true, [&](Graph& graph) { return graph.update(outIsUpdated); });
}

OSStatus AUGraphOpen(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.open(); });
}

OSStatus AUGraphClose(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.closeUnits(); });
}

OSStatus AUGraphInitialize(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.initialize(); });
}

OSStatus AUGraphUninitialize(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.uninitialize(); });
}

OSStatus AUGraphStart(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.start(); });
}

OSStatus AUGraphStop(AUGraph inGraph) {
    return withGraph(inGraph, true, [](Graph& graph) { return graph.stop(); });
}

OSStatus AUGraphIsOpen(AUGraph inGraph, Boolean* outIsOpen) {
    return withGraph(inGraph, outIsOpen != nullptr,
                     [&](Graph& graph) { return graph.isOpen(*outIsOpen); });
}

OSStatus AUGraphIsInitialized(AUGraph inGraph, Boolean* outIsInitialized) {
    return withGraph(inGraph, outIsInitialized != nullptr,
                     [&](Graph& graph) { return graph.isInitialized(*outIsInitialized); });
}

OSStatus AUGraphIsRunning(AUGraph inGraph, Boolean* outIsRunning) {
    return withGraph(inGraph, outIsRunning != nullptr,
                     [&](Graph& graph) { return graph.isRunning(*outIsRunning); });
}

OSStatus AUGraphGetCPULoad(AUGraph inGraph, Float32* outAverageCPULoad) {
    return withGraph(inGraph, outAverageCPULoad != nullptr,
                     [&](Graph& graph) { return graph.cpuLoad(*outAverageCPULoad); });
}

OSStatus AUGraphGetMaxCPULoad(AUGraph inGraph, Float32* outMaxLoad) {
    return withGraph(inGraph, outMaxLoad != nullptr,
                     [&](Graph& graph) { return graph.maximumCpuLoad(*outMaxLoad); });
}

OSStatus AUGraphAddRenderNotify(AUGraph inGraph, AURenderCallback inCallback, void* inRefCon) {
    return withGraph(inGraph, true,
                     [&](Graph& graph) { return graph.addRenderNotify(inCallback, inRefCon); });
}

OSStatus AUGraphRemoveRenderNotify(AUGraph inGraph, AURenderCallback inCallback, void* inRefCon) {
    return withGraph(inGraph, true,
                     [&](Graph& graph) { return graph.removeRenderNotify(inCallback, inRefCon); });
}

void CAShow(void* inObject) {
    if (const GraphTable::Access graph(graphs(), inObject); graph) {
        graph->show();
    } else if (const UnitTable::Access unit(units(), inObject); unit) {
        std::fprintf(stderr, "AudioUnit %p: %s, %s\n", inObject, unit->component().name,
                     unit->isRunning() ? "running" : "stopped");
    } else {
        std::fprintf(stderr, "CAShow: %p is no object of this library\n", inObject);
    }
}

}  // extern "C"
