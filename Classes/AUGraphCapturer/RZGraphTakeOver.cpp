#include "RZGraphTakeOver.h"

#include <algorithm>
#include <vector>

#include "RZHookSet.h"
#include "RZStreamMixManager.h"
#include "RZUnitFacts.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioUnitRecordResolveManager.h"

namespace {

RZStreamMixManager& manager() {
    return *RZStreamMixManager::sharedManager();
}

template <class Ask>
bool answersYes(Ask ask, AUGraph graph) {
    Boolean answer = 0;
    return ask(graph, &answer) == 0 && answer != 0;
}

bool isOurs(const AURenderCallbackStruct& callback) {
    return callback.inputProc == RZReplayAudioUnitCapture_InputProcessCallback;
}

/// The callbacks that feed the node's inputs, as the graph has them.
std::vector<AUNodeRenderCallback> callbacksOf(AUGraph graph, AUNode node) {
    // Ours among them: the answer for the program names none.
    const RZOwnCalls own;
    UInt32 count = 0;
    if (AUGraphCountNodeInteractions(graph, node, &count) != 0 || count == 0) {
        return {};
    }
    std::vector<AUNodeInteraction> all(count);
    if (AUGraphGetNodeInteractions(graph, node, &count, all.data()) != 0) {
        return {};
    }
    std::vector<AUNodeRenderCallback> callbacks;
    for (const AUNodeInteraction& one : all) {
        if (one.nodeInteractionType == kAUNodeInteraction_InputCallback &&
            one.nodeInteraction.inputCallback.destNode == node) {
            callbacks.push_back(one.nodeInteraction.inputCallback);
        }
    }
    return callbacks;
}

OSStatus setCallback(AUGraph graph, AUNode node, UInt32 input,
                     const AURenderCallbackStruct& callback) {
    const RZOwnCalls own;
    return AUGraphSetNodeInputCallback(graph, node, input, &callback);
}

std::optional<PendingNodeInfo> pendingOf(AUGraph graph) {
    std::optional<PendingNodeInfo> found;
    PendingNodes::shared().with(graph, [&](const PendingNodeInfo& info) { found = info; });
    return found;
}

/// The graph's node of the output type, for graphs whose making nobody saw.
std::optional<PendingNodeInfo> outputNodeOf(AUGraph graph) {
    UInt32 count = 0;
    if (AUGraphGetNodeCount(graph, &count) != 0) {
        return std::nullopt;
    }
    for (UInt32 i = 0; i < count; ++i) {
        PendingNodeInfo info{};
        if (AUGraphGetIndNode(graph, i, &info.node) == 0 &&
            AUGraphNodeInfo(graph, info.node, &info.desc, nullptr) == 0 &&
            info.desc.componentType == kAudioUnitType_Output) {
            return info;
        }
    }
    return std::nullopt;
}

/// An edit of an initialised graph initialises its units, also one that the host has uninitialised
/// behind its back; a running graph would make it at an update that the host may never ask for; and
/// what the unit itself was given may lie over what the graph has.
bool mayEdit(AUGraph graph, AUNode node) {
    AudioUnit unit = nullptr;
    const bool isOpen = AUGraphNodeInfo(graph, node, nullptr, &unit) == 0 && unit != nullptr;
    return !answersYes(AUGraphIsInitialized, graph) && !answersYes(AUGraphIsRunning, graph) &&
           (!isOpen || RZHostCallbacks::shared().of(unit).turn == 0);
}

/// Ours goes where the graph feeds the node from a callback of the host's. Only as long as no edit
/// has reached the units: a later one may go over what the host gives the unit itself.
void takeOverNode(const RZReplayAudioUnitObject& obj, AUGraph graph) {
    const auto callbacks = callbacksOf(graph, obj.inNode());
    const bool isThere = std::any_of(callbacks.begin(), callbacks.end(),
                                     [](const auto& one) { return isOurs(one.cback); });
    const auto fed = std::find_if(callbacks.begin(), callbacks.end(),
                                  [](const auto& one) { return one.destInputNumber == 0; });
    if (isThere || fed == callbacks.end()) {
        return;
    }
    const AUNodeRenderCallback& host = *fed;
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const RZHostCallback before = known.of(graph);
    known.note(graph, {host.cback, 0, true});
    const AURenderCallbackStruct ours{RZReplayAudioUnitCapture_InputProcessCallback, graph};
    if (setCallback(graph, obj.inNode(), 0, ours) != 0) {
        known.note(graph, before);
    }
}

/// Which of the host's callbacks the object stands for: the node's or the unit's, whichever was set
/// last, as far as ours is in its place. None where something else feeds the unit.
void chooseOrigin(RZReplayAudioUnitObject& obj, AUGraph graph) {
    const auto callbacks = callbacksOf(graph, obj.inNode());
    const RZHostCallback node = RZHostCallbacks::shared().of(graph);
    // The graph tells at once what waits, and the unit goes on with what it has.
    const bool isThere =
        node.isQueued || std::any_of(callbacks.begin(), callbacks.end(),
                                     [](const auto& one) { return isOurs(one.cback); });
    const RZHostCallback unit = RZHostCallbacks::shared().of(obj.inUnit());
    if (unit.isOurs) {
        obj.setUnitsCallback(unit.callback);
    }
    if (node.isOurs) {
        obj.setNodesCallback(node.callback);
    }
    const bool isOverNodes = (unit.isOurs || unit.isForeign) && unit.turn > node.turn;
    if (isThere && node.isOurs && !isOverNodes) {
        obj.setNodesOriginCallback(node.callback);
    } else if (unit.isOurs) {
        obj.setOriginCallback(unit.callback);
    } else {
        obj.setOriginCallback({});
    }
}

/// Whether what the graph is given now waits. A running graph is updated; one that was
/// uninitialised goes on with what its unit has until it is initialised again.
bool isWaiting(AUGraph graph) {
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const bool isRunning = answersYes(AUGraphIsRunning, graph);
    const bool isInitialized = answersYes(AUGraphIsInitialized, graph);
    if (isInitialized && !known.isCarriedOut(graph)) {
        known.markCarriedOut(graph, true);
    }
    return isRunning ||
           (!isInitialized && answersYes(AUGraphIsOpen, graph) && known.isCarriedOut(graph));
}

/// The graph's edits are carried out with the call that is made: where it stands still there is
/// nothing else to wait for.
void settleQueued(AUGraph graph) {
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const RZHostCallback node = known.of(graph);
    if (node.isQueued && !isWaiting(graph)) {
        known.note(graph, node.updated());
    } else if (node.haveOthersQueued && !isWaiting(graph)) {
        known.noteOthersQueued(graph, false);
    }
}

/// Whether something waits that a start brings: before the unit starts, or else it does not.
bool isUpdatedByStart(AUGraph graph) {
    const RZHostCallback node = RZHostCallbacks::shared().of(graph);
    return (node.isQueued || node.haveOthersQueued) && answersYes(AUGraphIsInitialized, graph) &&
           !answersYes(AUGraphIsRunning, graph);
}

/// What the graph renders when it starts is decided before.
void settleGraph(AUGraph graph) {
    settleQueued(graph);
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    AudioUnit unit = nullptr;
    if (obj && !answersYes(AUGraphIsRunning, graph) &&
        AUGraphNodeInfo(graph, obj->inNode(), nullptr, &unit) == 0 && obj->inUnit() == unit) {
        chooseOrigin(*obj, graph);
    }
}

}  // namespace

bool RZNodeTakeOver::begin(AUGraph graph, AUNode node, UInt32 input,
                           const AURenderCallbackStruct& callback) {
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    const bool isObjs = obj && obj->inNode() == node;
    const auto pending = pendingOf(graph);
    const bool isPending = pending && pending->node == node;
    RZHostCallbacks& known = RZHostCallbacks::shared();
    const bool isToWait = isWaiting(graph);
    // An output unit plays its input 0 alone. With ours on another one the graph would come to its
    // refusal as often as we set it, and in another order.
    if ((!isObjs && !isPending) || input != 0) {
        if (isToWait && (obj || pending)) {
            known.noteOthersQueued(graph, true);
        }
        return false;
    }
    const RZHostCallback noted = known.of(graph);
    // Without an object, ours goes in only where opening the graph is going to make one.
    const bool canTakeOver = isObjs || !answersYes(AUGraphIsOpen, graph);
    const bool isTakenOver = callback.inputProc != nullptr && canTakeOver;
    RZHostCallback now{callback, 0, isTakenOver};
    // The unit goes on with the old callback until the graph's edits are carried out.
    if ((isObjs || noted.isOurs) && isToWait) {
        now = noted;
        now.isQueued = true;
        now.isBehindOthers = noted.haveOthersQueued;
        now.isOursNext = isTakenOver;
        now.next = callback;
    }
    known.note(graph, now);
    graph_ = graph;
    noted_ = noted;
    if (isPending) {
        pending_ = pending;
        PendingNodes::shared().setCallback(graph, node, callback);
    }
    if (isObjs) {
        obj_ = obj;
        before_ = obj->originCallback();
        nodesBefore_ = obj->nodesCallback();
        if (!now.isQueued) {
            obj->setNodesOriginCallback(callback);
        }
    }
    return isTakenOver;
}

void RZNodeTakeOver::end(OSStatus status) {
    if (status == 0 || graph_ == nullptr) {
        return;
    }
    RZHostCallbacks::shared().note(graph_, noted_);
    if (pending_) {
        PendingNodes::shared().set(graph_, *pending_);
    }
    if (obj_) {
        obj_->setNodesOriginCallback(before_);
        obj_->setNodesCallback(nodesBefore_);
    }
}

void RZCaptureNode(const RZLogSite& site, AUGraph graph, const PendingNodeInfo& info,
                   bool isFresh) {
    AudioUnit unit = nullptr;
    const OSStatus error = AUGraphNodeInfo(graph, info.node, nullptr, &unit);
    if (error != 0) {
        site.log(4, "[AUGraphHook] get node info: %p error:%d", graph, error);
        return;
    }
    const auto old = manager().findAudioUnitObjByAUGraph(graph);
    if (old && old->inUnit() == unit) {
        return;  // opened again, which changes nothing
    }
    if (isFresh) {
        RZHostCallbacks::shared().markCarriedOut(graph, false);
    }
    if (old) {
        // Its node was removed and its unit is gone; it would be found in the new one's place.
        manager().disposeAudioUnitObj(old);
    }
    RZHostCallbacks::shared().markNodes(unit);
    settleQueued(graph);
    const auto obj = manager().newAudioUnitObj(unit);
    if (!obj) {
        RZUnitFacts::shared().leftAlone(unit, graph, RZUnitReason::NoNumberFree);
        if (isFresh) {
            RZGiveBackNode(graph);
        }
        return;
    }
    obj->setAuGraph(graph);
    obj->setInNode(info.node);
    if (isFresh) {
        takeOverNode(*obj, graph);
    }
    chooseOrigin(*obj, graph);
}

void RZAdoptGraph(const RZLogSite& site, AUGraph graph) {
    const auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    const auto info = outputNodeOf(graph);
    AudioUnit unit = nullptr;
    if (!info || AUGraphNodeInfo(graph, info->node, nullptr, &unit) != 0 || unit == nullptr) {
        return;
    }
    const auto obj = manager().findAudioUnitObjByAUGraph(graph);
    if (obj && obj->inUnit() == unit) {
        return;
    }
    if (answersYes(AUGraphIsInitialized, graph) && !resolver.existAudioUnit(unit)) {
        if (!pendingOf(graph)) {
            PendingNodes::shared().set(graph, *info);
        }
        RZCaptureNode(site, graph, *info, false);
    }
}

void RZSettleEdit(AUGraph graph) {
    const RZHostCallback node = RZHostCallbacks::shared().of(graph);
    if ((node.isQueued || node.haveOthersQueued) && !isWaiting(graph)) {
        settleGraph(graph);
    }
}

void RZGraphUpdate::begin(AUGraph graph, Call call) {
    if (call == Call::Start && !isUpdatedByStart(graph)) {
        settleGraph(graph);
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
    } else if (!answersYes(AUGraphIsInitialized, graph) && !answersYes(AUGraphIsRunning, graph)) {
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
    chooseOrigin(*obj_, graph_);
    const bool wasTaken = before_.inputProc != nullptr;
    const bool isTaken = obj_->origin_inputProc() != nullptr;
    if (wasTaken != isTaken && (status != 0 || !isRecorded)) {
        manager().audioUnitSourceChanged(obj_, NO);
    }
}

/// Whether what waited came after the edit that the units refused.
bool RZGraphUpdate::isBehindTheRefused() const {
    const auto info = outputNodeOf(graph_);
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
    const auto info = outputNodeOf(graph_);
    if (!info) {
        return false;
    }
    const auto callbacks = callbacksOf(graph_, info->node);
    const auto found =
        std::find_if(callbacks.begin(), callbacks.end(),
                     [](const AUNodeRenderCallback& one) { return one.destInputNumber == 0; });
    if (noted_.next.inputProc == nullptr || found == callbacks.end()) {
        return noted_.next.inputProc == nullptr && found == callbacks.end();
    }
    return noted_.isOursNext ? isOurs(found->cback)
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

void RZGiveBackNode(AUGraph graph) {
    RZHostCallbacks& known = RZHostCallbacks::shared();
    // Where an update was waited for, the graph keeps what it is to bring.
    RZHostCallback host = known.of(graph).updated();
    const auto info = pendingOf(graph);
    // Where ours has to stay it calls what is known of the host's.
    if (!host.isOurs || !info || !mayEdit(graph, info->node)) {
        return;
    }
    for (const AUNodeRenderCallback& one : callbacksOf(graph, info->node)) {
        if (isOurs(one.cback) &&
            setCallback(graph, info->node, one.destInputNumber, host.callback) != 0) {
            return;
        }
    }
    host.isOurs = false;
    known.note(graph, host);
}
