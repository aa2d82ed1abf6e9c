#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "RZHostCallbacks.h"
#include "RZInteractionList.h"
#include "RZReplayAudioUnitObject.h"
#include "RZUnitFormatChange.h"

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
