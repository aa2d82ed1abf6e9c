#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>
#include <optional>

#include "PendingNodes.h"
#include "RZHostCallbacks.h"
#include "RZInteractionList.h"
#include "RZLogSite.h"
#include "RZReplayAudioUnitObject.h"
#include "RZUnitFormatChange.h"

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

/// [host thread] One call of the host that has the graph's edits carried out: its update, its
/// initialisation, or its start where it stands still. A callback that waits
/// for it stands behind ours before the platform does its part: when the call returns, nothing of
/// the program's old callback runs any more, and no slice that could run it has still to begin.
/// While this lives, blocks are not stored if the unit may have changed its side.
class RZGraphUpdate {
  public:
    enum class Call : std::uint8_t { Update, Initialization, Start };

    void begin(AUGraph graph, Call call);
    /// Behind the platform's part. What it has refused goes back; what feeds the output node now is
    /// recorded. `isRecorded`: noteUpdate comes behind this and follows the unit's format.
    void end(OSStatus status, BOOL isRecorded);

  private:
    [[nodiscard]] bool isStillInGraph() const;
    [[nodiscard]] bool isBehindTheRefused() const;
    void settleWaiting(bool isDone);

    std::shared_ptr<RZReplayAudioUnitObject> obj_;  ///< null: the graph is not captured
    std::optional<RZUnitFormatChange> change_;      ///< ours comes where the notify was
    AUGraph graph_ = nullptr;
    Call call_ = Call::Update;
    RZHostCallback noted_;
    RZInteractionList interactions_;  ///< as they were when the call came, if something waited
    bool waitsOn_ = false;            ///< what waited has not been brought, and not been dropped
    AURenderCallbackStruct before_{};
    AURenderCallbackStruct nodesBefore_{};
};

/// [host thread] An output node without a capture object may get one when its graph starts.
void RZAdoptGraph(const RZLogSite& site, AUGraph graph);

/// [host thread] The graph's capture object is gone or about to go: the host's callback goes back
/// to where ours is in the graph.
void RZGiveBackNode(AUGraph graph);
