#include "RZGraphUpdate.h"

#include <algorithm>

#include "RZGraphFacts.h"
#include "RZStreamMixManager.h"

namespace {

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

/// Whether something waits that a start brings: before the unit starts, or else it does not.
bool isUpdatedByStart(AUGraph graph) {
    const RZHostCallback node = RZHostCallbacks::shared().of(graph);
    return (node.isQueued || node.haveOthersQueued) && RZAnswersYes(AUGraphIsInitialized, graph) &&
           !RZAnswersYes(AUGraphIsRunning, graph);
}

}  // namespace

void RZGraphUpdate::begin(AUGraph graph, Call call) {
    if (call == Call::Start && !isUpdatedByStart(graph)) {
        RZSettleGraph(graph);
        return;
    }
    graph_ = graph;
    call_ = call;
    obj_ = manager().findAudioUnitObjByAUGraph(graph);
    noted_ = RZHostCallbacks::shared().of(graph);
    if (obj_) {
        before_ = obj_->originCallback();
        nodesBefore_ = obj_->nodesCallback();
    }
    if (noted_.isQueued) {
        interactions_ = RZInteractionList::of(graph);
    }
    if (call == Call::Initialization) {
        RZHostCallbacks::shared().markCarriedOut(graph, true);
    } else if (!RZAnswersYes(AUGraphIsInitialized, graph) &&
               !RZAnswersYes(AUGraphIsRunning, graph)) {
        // The platform does nothing: what waits goes on waiting.
        noted_.isQueued = false;
        noted_.haveOthersQueued = false;
    }
    // Where ours goes, the old callback is called until it has gone.
    if (!noted_.isQueued || !noted_.isOursNext) {
        return;
    }
    RZHostCallbacks::shared().note(graph, noted_.updated());
    if (obj_) {
        if (before_.inputProc == nullptr && obj_->isStarted()) {
            change_.emplace(obj_);
        }
        obj_->setNodesOriginCallback(noted_.next);
    }
}

void RZGraphUpdate::end(OSStatus status, BOOL isRecorded) {
    // With "not in this context" the edits are made, or will be at the next slice. With any other
    // failure those before the one that failed are made, that one is dropped, and the others wait
    // on.
    bool isDone = status == 0 || status == kAUGraphErr_CannotDoInCurrentContext;
    if (!isDone && noted_.isQueued && isStillInGraph()) {
        waitsOn_ = isBehindTheRefused();
        isDone = !waitsOn_;
    }
    if (noted_.isQueued) {
        settleWaiting(isDone);
    } else if (isDone && noted_.haveOthersQueued) {
        RZHostCallbacks::shared().noteOthersQueued(graph_, false);
    }
    if (!obj_ || !isDone) {
        return;
    }
    RZChooseOrigin(*obj_, graph_);
    const bool wasTaken = before_.inputProc != nullptr;
    const bool isTaken = obj_->origin_inputProc() != nullptr;
    if (wasTaken != isTaken && (status != 0 || !isRecorded)) {
        manager().audioUnitSourceChanged(obj_, NO);
    }
}

/// Whether what waited came after the edit that the units refused.
bool RZGraphUpdate::isBehindTheRefused() const {
    const auto info = RZOutputNodeOf(graph_);
    if (call_ == Call::Initialization || !info) {
        return noted_.isBehindOthers;  // the refused one stays in the graph
    }
    const auto refused = interactions_.firstGone(RZInteractionList::of(graph_));
    const auto waiting = interactions_.find({info->node, 0});
    if (!refused) {
        return false;
    }
    // What takes a callback away is in no list.
    return waiting ? *refused < *waiting : noted_.isBehindOthers;
}

/// Whether the graph has the callback that waited: what it drops is gone from there too.
bool RZGraphUpdate::isStillInGraph() const {
    const auto info = RZOutputNodeOf(graph_);
    if (!info) {
        return false;
    }
    const auto callbacks = RZCallbacksOf(graph_, info->node);
    const auto found =
        std::find_if(callbacks.begin(), callbacks.end(),
                     [](const AUNodeRenderCallback& one) { return one.destInputNumber == 0; });
    if (noted_.next.inputProc == nullptr || found == callbacks.end()) {
        return noted_.next.inputProc == nullptr && found == callbacks.end();
    }
    return noted_.isOursNext ? RZIsOurs(found->cback)
                             : found->cback.inputProc == noted_.next.inputProc &&
                                   found->cback.inputProcRefCon == noted_.next.inputProcRefCon;
}

void RZGraphUpdate::settleWaiting(bool isDone) {
    if (isDone) {
        RZHostCallbacks::shared().note(graph_, noted_.updated());
        return;
    }
    // The platform goes on as before: it has dropped the callback, or keeps it for later.
    noted_.isQueued = waitsOn_;
    RZHostCallbacks::shared().note(graph_, noted_);
    if (obj_) {
        obj_->setNodesOriginCallback(before_);
        obj_->setNodesCallback(nodesBefore_);
    }
    if (change_) {
        change_->takeBack();
    }
}
