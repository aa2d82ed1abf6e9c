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
    RZHostCallback noted_;
    std::optional<PendingNodeInfo> pending_;
};

/// [host thread] Makes the capture object of an output node of an open graph, and takes over what
/// feeds the node; where none can be made, the node gets the host's callback back.
void RZCaptureNode(const RZLogSite& site, AUGraph graph, const PendingNodeInfo& info);

/// [host thread] The graph is about to start: what it renders from then on is decided here. An
/// output node without a capture object may get one now.
void RZPrepareGraph(const RZLogSite& site, AUGraph graph);

/// [host thread] One call of the host that has the graph's edits carried out. A callback that waits
/// for it stands behind ours before the platform does its part: when the call returns, nothing of
/// the program's old callback runs any more, and no slice that could run it has still to begin.
class RZGraphUpdate {
  public:
    void begin(AUGraph graph);
    /// Behind the platform's part. What it has refused goes back.
    void end(OSStatus status);

  private:
    std::shared_ptr<RZReplayAudioUnitObject> obj_;  ///< null: no callback waited
    AUGraph graph_ = nullptr;
    AURenderCallbackStruct before_{};
};

/// [host thread] The graph's capture object is gone or about to go: the host's callback goes back
/// to where ours is in the graph.
void RZGiveBackNode(AUGraph graph);
