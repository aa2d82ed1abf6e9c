#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>
#include <optional>

#include "PendingNodes.h"
#include "RZHostCallbacks.h"
#include "RZLogSite.h"
#include "RZReplayAudioUnitObject.h"

// The same rule as for units (RZUnitTakeOver.h): without a capture object the node plays the host's
// own callback.

/// [host thread] One call of the host that gives a node an input callback.
class RZNodeTakeOver {
  public:
    /// Before the platform's call; true when ours is to go in instead. Throws without memory: then
    /// nothing has changed.
    bool begin(AUGraph graph, AUNode node, UInt32 input, const AURenderCallbackStruct& callback);
    /// Behind it. What the platform refused leaves no trace.
    void end(OSStatus status);

  private:
    AUGraph graph_ = nullptr;
    std::shared_ptr<RZReplayAudioUnitObject> obj_;
    AURenderCallbackStruct before_{};
    AURenderCallbackStruct nodesBefore_{};
    RZHostCallback noted_;
    std::optional<PendingNodeInfo> pending_;
};

/// [host thread] Makes the capture object of an output node of an open graph. In one that was
/// opened just now (`isFresh`) it takes over what feeds the node; where no object can be made, the
/// node gets the host's callback back.
void RZCaptureNode(const RZLogSite& site, AUGraph graph, const PendingNodeInfo& info, bool isFresh);

// The next two come also with calls that pass straight through: ours may stand in the graph
// already, and has to know whom it stands for.

/// [host thread] An edit of the graph was made that ours has no part in. Where the graph is
/// initialised and stands still, what waited was carried out with it.
void RZSettleEdit(AUGraph graph);

/// [host thread] An output node without a capture object may get one when its graph starts.
void RZAdoptGraph(const RZLogSite& site, AUGraph graph);

/// [host thread] The graph's capture object is gone or about to go: the host's callback goes back
/// to where ours is in the graph.
void RZGiveBackNode(AUGraph graph);
