#ifndef TQPLATFORM_AUGRAPH_H
#define TQPLATFORM_AUGRAPH_H

/*
 * Graphs of audio units: nodes, their interactions, and the states closed, open, initialised and
 * running.
 *
 * Every call answers kAudio_ParamError for a null graph and kAUGraphErr_InvalidAudioUnit for a
 * handle that is no graph (any more). [any thread] where nothing else is said: calls of one graph
 * wait for each other, except AUGraphUpdate() inside a slice, which refuses instead.
 */

#include <AudioToolbox/AUComponent.h>
#include <AudioToolbox/AudioUnitProperties.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct OpaqueAUGraph* AUGraph;
typedef SInt32 AUNode;

AU_ENUM(OSStatus){
    kAUGraphErr_NodeNotFound = -10860,     kAUGraphErr_InvalidConnection = -10861,
    kAUGraphErr_OutputNodeErr = -10862,    kAUGraphErr_CannotDoInCurrentContext = -10863,
    kAUGraphErr_InvalidAudioUnit = -10864,
};

AU_ENUM(UInt32){
    kAUNodeInteraction_Connection = 1,
    kAUNodeInteraction_InputCallback = 2,
};

typedef struct AudioUnitNodeConnection {
    AUNode sourceNode;
    UInt32 sourceOutputNumber;
    AUNode destNode;
    UInt32 destInputNumber;
} AudioUnitNodeConnection;

typedef AudioUnitNodeConnection AUNodeConnection;

typedef struct AUNodeRenderCallback {
    AUNode destNode;
    AudioUnitElement destInputNumber;
    AURenderCallbackStruct cback;
} AUNodeRenderCallback;

typedef struct AUNodeInteraction {
    UInt32 nodeInteractionType; /**< which member of the union holds */
    union {
        AUNodeConnection connection;
        AUNodeRenderCallback inputCallback;
    } nodeInteraction;
} AUNodeInteraction;

/** [host thread] */
AU_EXPORT OSStatus NewAUGraph(AUGraph* outGraph);
/** [any thread] Works in any state: stops, uninitialises and closes first. */
AU_EXPORT OSStatus DisposeAUGraph(AUGraph inGraph);

/** [any thread] kAUGraphErr_OutputNodeErr for a second output node. */
AU_EXPORT OSStatus AUGraphAddNode(AUGraph inGraph, const AudioComponentDescription* inDescription,
                                  AUNode* outNode);
AU_EXPORT OSStatus AUGraphRemoveNode(AUGraph inGraph, AUNode inNode);
AU_EXPORT OSStatus AUGraphGetNodeCount(AUGraph inGraph, UInt32* outNumberOfNodes);
AU_EXPORT OSStatus AUGraphGetIndNode(AUGraph inGraph, UInt32 inIndex, AUNode* outNode);
/** [any thread] Either out pointer may be null; the unit is null while the graph is closed. The
 * graph owns the unit. */
AU_EXPORT OSStatus AUGraphNodeInfo(AUGraph inGraph, AUNode inNode,
                                   AudioComponentDescription* outDescription,
                                   AudioUnit* outAudioUnit);

/* Edits. What the graph itself can tell is answered at once, also while it runs:
 * kAUGraphErr_NodeNotFound, and kAUGraphErr_InvalidConnection for an input or an output that is
 * taken and for a connection where a callback is or the reverse. A callback replaces a callback;
 * one without procedure takes it away; disconnecting an input that has nothing changes nothing.
 * What only the units can tell (a bus they do not have, a format they do not take) is the answer of
 * the call that brings the edit to them: AUGraphInitialize() for all that was asked before, the
 * edit itself while the graph is initialised and stopped, AUGraphUpdate() while it runs. The
 * queries show what was asked for.
 */

AU_EXPORT OSStatus AUGraphConnectNodeInput(AUGraph inGraph, AUNode inSourceNode,
                                           UInt32 inSourceOutputNumber, AUNode inDestNode,
                                           UInt32 inDestInputNumber);
AU_EXPORT OSStatus AUGraphSetNodeInputCallback(AUGraph inGraph, AUNode inDestNode,
                                               UInt32 inDestInputNumber,
                                               const AURenderCallbackStruct* inInputCallback);
AU_EXPORT OSStatus AUGraphDisconnectNodeInput(AUGraph inGraph, AUNode inDestNode,
                                              UInt32 inDestInputNumber);
AU_EXPORT OSStatus AUGraphClearConnections(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphGetNumberOfInteractions(AUGraph inGraph, UInt32* outNumInteractions);
AU_EXPORT OSStatus AUGraphGetInteractionInfo(AUGraph inGraph, UInt32 inInteractionIndex,
                                             AUNodeInteraction* outInteraction);
AU_EXPORT OSStatus AUGraphCountNodeInteractions(AUGraph inGraph, AUNode inNode,
                                                UInt32* outNumInteractions);
/** [any thread] In: how many fit, out: how many were written. */
AU_EXPORT OSStatus AUGraphGetNodeInteractions(AUGraph inGraph, AUNode inNode,
                                              UInt32* ioNumInteractions,
                                              AUNodeInteraction* outInteractions);

/** [any thread] Puts the queued edits of a running graph in place; the next slice has them. A null
 *  `outIsUpdated` also waits for the slice that may still be rendered without them to end, 2 ms at
 *  most: after that kAUGraphErr_CannotDoInCurrentContext, and all that the next update has left to
 *  do is to wait. Otherwise returns at once, with true when that slice is over. */
AU_EXPORT OSStatus AUGraphUpdate(AUGraph inGraph, Boolean* outIsUpdated);

/** [host thread] Makes the units. */
AU_EXPORT OSStatus AUGraphOpen(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphClose(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphInitialize(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphUninitialize(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphStart(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphStop(AUGraph inGraph);
AU_EXPORT OSStatus AUGraphIsOpen(AUGraph inGraph, Boolean* outIsOpen);
AU_EXPORT OSStatus AUGraphIsInitialized(AUGraph inGraph, Boolean* outIsInitialized);
AU_EXPORT OSStatus AUGraphIsRunning(AUGraph inGraph, Boolean* outIsRunning);

/** [any thread] Share of the slice's duration that the last (or the slowest) slice took to render,
 * 0 to 1 and beyond. Asking for the maximum starts it anew. */
AU_EXPORT OSStatus AUGraphGetCPULoad(AUGraph inGraph, Float32* outAverageCPULoad);
AU_EXPORT OSStatus AUGraphGetMaxCPULoad(AUGraph inGraph, Float32* outMaxLoad);

/** [any thread] `inCallback` is called before and after each render of the output node. */
AU_EXPORT OSStatus AUGraphAddRenderNotify(AUGraph inGraph, AURenderCallback inCallback,
                                          void* inRefCon);
AU_EXPORT OSStatus AUGraphRemoveRenderNotify(AUGraph inGraph, AURenderCallback inCallback,
                                             void* inRefCon);

/** [host thread] Prints a graph or a unit on standard error; anything else is named as unknown. */
AU_EXPORT void CAShow(void* inObject);

#ifdef __cplusplus
}
#endif

#endif
