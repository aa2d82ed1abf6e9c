#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <optional>
#include <vector>

#include "PendingNodes.h"
#include "RZReplayAudioUnitObject.h"

// What a graph has now, and what of it waits for the graph's next update. [host thread]

template <class Ask>
bool RZAnswersYes(Ask ask, AUGraph graph) {
    Boolean answer = 0;
    return ask(graph, &answer) == 0 && answer != 0;
}

bool RZIsOurs(const AURenderCallbackStruct& callback);

/// The callbacks that feed the node's inputs, as the graph has them.
std::vector<AUNodeRenderCallback> RZCallbacksOf(AUGraph graph, AUNode node);

/// The graph's node of the output type, for graphs whose making nobody saw.
std::optional<PendingNodeInfo> RZOutputNodeOf(AUGraph graph);

/// Whether what the graph is given now waits. A running graph is updated; one that was
/// uninitialised goes on with what its unit has until it is initialised again.
bool RZIsWaiting(AUGraph graph);

/// The graph's edits are carried out with the call that is made: where it stands still there is
/// nothing else to wait for.
void RZSettleQueued(AUGraph graph);

/// Which of the host's callbacks the object stands for: the node's or the unit's, whichever was set
/// last, as far as ours is in its place. None where something else feeds the unit.
void RZChooseOrigin(RZReplayAudioUnitObject& obj, AUGraph graph);

/// What the graph renders when it starts is decided before.
void RZSettleGraph(AUGraph graph);
