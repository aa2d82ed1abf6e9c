#include "RZInteractionList.h"

#include <algorithm>

#include "RZHookSet.h"

namespace {

using Input = RZInteractionList::Input;

bool isConnection(const AUNodeInteraction& one) {
    return one.nodeInteractionType == kAUNodeInteraction_Connection;
}

Input inputOf(const AUNodeInteraction& one) {
    if (isConnection(one)) {
        const AUNodeConnection& connection = one.nodeInteraction.connection;
        return {connection.destNode, connection.destInputNumber};
    }
    const AUNodeRenderCallback& callback = one.nodeInteraction.inputCallback;
    return {callback.destNode, callback.destInputNumber};
}

bool isSame(const AUNodeInteraction& one, const AUNodeInteraction& other) {
    if (one.nodeInteractionType != other.nodeInteractionType || inputOf(one) != inputOf(other)) {
        return false;
    }
    if (isConnection(one)) {
        const AUNodeConnection& connection = one.nodeInteraction.connection;
        return connection.sourceNode == other.nodeInteraction.connection.sourceNode &&
               connection.sourceOutputNumber == other.nodeInteraction.connection.sourceOutputNumber;
    }
    const AURenderCallbackStruct& callback = one.nodeInteraction.inputCallback.cback;
    return callback.inputProc == other.nodeInteraction.inputCallback.cback.inputProc &&
           callback.inputProcRefCon == other.nodeInteraction.inputCallback.cback.inputProcRefCon;
}

/// The graph itself answers so, before any unit is asked.
bool isRefusedByTheGraph(OSStatus status) {
    return status == kAUGraphErr_NodeNotFound || status == kAUGraphErr_InvalidConnection ||
           status == kAudio_ParamError || status == kAUGraphErr_InvalidAudioUnit;
}

}  // namespace

RZInteractionList RZInteractionList::of(AUGraph graph) {
    // The answer for the program names its own callbacks.
    const RZOwnCalls own;
    RZInteractionList list;
    UInt32 count = 0;
    if (AUGraphGetNumberOfInteractions(graph, &count) != 0) {
        return list;
    }
    list.all_.reserve(count);
    for (UInt32 i = 0; i < count; ++i) {
        AUNodeInteraction one{};
        if (AUGraphGetInteractionInfo(graph, i, &one) == 0) {
            list.all_.push_back(one);
        }
    }
    return list;
}

bool RZInteractionList::isEdited(AUGraph graph, OSStatus status) const {
    if (status != 0 && !isRefusedByTheGraph(status)) {
        return true;
    }
    // As many as before may be others: one that waited was dropped, and one has come.
    const RZInteractionList now = of(graph);
    return !std::equal(all_.begin(), all_.end(), now.all_.begin(), now.all_.end(), isSame);
}

bool RZInteractionList::feedsAnother(AUNode node) const {
    return std::any_of(all_.begin(), all_.end(), [node](const AUNodeInteraction& one) {
        const AUNodeConnection& connection = one.nodeInteraction.connection;
        return isConnection(one) && connection.sourceNode == node && connection.destNode != node;
    });
}

std::optional<std::size_t> RZInteractionList::find(const Input& input) const {
    for (std::size_t i = 0; i < all_.size(); ++i) {
        if (inputOf(all_[i]) == input) {
            return i;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> RZInteractionList::firstGone(const RZInteractionList& later) const {
    for (std::size_t i = 0; i < all_.size(); ++i) {
        if (!later.find(inputOf(all_[i]))) {
            return i;
        }
    }
    return std::nullopt;
}
