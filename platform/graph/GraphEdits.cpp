// Interactions of a graph's nodes and how they reach the units.

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "graph/Graph.h"

namespace tqplatform {

namespace {

// Callers may hold a lock that a callback of the slice wants. Then the device's thread, and with it
// every other unit, stands still until the wait ends: it must be far shorter than a period of the
// device. A slice that merely takes long is met again at the next update.
constexpr std::chrono::milliseconds kLongestWait{2};
constexpr std::chrono::microseconds kWaitStep{100};

AUNodeInteraction connectionOf(const AUNodeConnection& connection) {
    AUNodeInteraction interaction{};
    interaction.nodeInteractionType = kAUNodeInteraction_Connection;
    interaction.nodeInteraction.connection = connection;
    return interaction;
}

AUNodeInteraction callbackOf(AUNode node, UInt32 input, const AURenderCallbackStruct& callback) {
    AUNodeInteraction interaction{};
    interaction.nodeInteractionType = kAUNodeInteraction_InputCallback;
    interaction.nodeInteraction.inputCallback = {node, input, callback};
    return interaction;
}

bool isConnection(const AUNodeInteraction& interaction) {
    return interaction.nodeInteractionType == kAUNodeInteraction_Connection;
}

bool sameConnection(const AUNodeConnection& a, const AUNodeConnection& b) {
    return a.sourceNode == b.sourceNode && a.sourceOutputNumber == b.sourceOutputNumber &&
           a.destNode == b.destNode && a.destInputNumber == b.destInputNumber;
}

}  // namespace

bool Graph::concerns(const AUNodeInteraction& interaction, AUNode node) {
    if (isConnection(interaction)) {
        return interaction.nodeInteraction.connection.sourceNode == node ||
               interaction.nodeInteraction.connection.destNode == node;
    }
    return interaction.nodeInteraction.inputCallback.destNode == node;
}

std::vector<AUNodeInteraction>::iterator Graph::findInput(AUNode node, UInt32 input) {
    return std::find_if(
        interactions_.begin(), interactions_.end(), [&](const AUNodeInteraction& known) {
            if (isConnection(known)) {
                const auto& connection = known.nodeInteraction.connection;
                return connection.destNode == node && connection.destInputNumber == input;
            }
            const auto& callback = known.nodeInteraction.inputCallback;
            return callback.destNode == node && callback.destInputNumber == input;
        });
}

OSStatus Graph::connect(const AUNodeConnection& connection) {
    const Unit::ListenerDelay listeners;
    const std::lock_guard lock(lock_);
    if (findNode(connection.sourceNode) == nullptr || findNode(connection.destNode) == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    // A unit may feed itself from another bus, as the microphone does that is played through.
    if (connection.sourceNode == connection.destNode && connection.sourceOutputNumber == 0) {
        return kAUGraphErr_InvalidConnection;
    }
    const auto there = findInput(connection.destNode, connection.destInputNumber);
    if (there != interactions_.end()) {
        return isConnection(*there) && sameConnection(there->nodeInteraction.connection, connection)
                   ? OSStatus{noErr}
                   : OSStatus{kAUGraphErr_InvalidConnection};
    }
    // An output that two inputs pull would give each of them every other slice.
    const bool taken = std::any_of(
        interactions_.begin(), interactions_.end(), [&](const AUNodeInteraction& known) {
            const auto& other = known.nodeInteraction.connection;
            return isConnection(known) && other.sourceNode == connection.sourceNode &&
                   other.sourceOutputNumber == connection.sourceOutputNumber;
        });
    if (taken) {
        return kAUGraphErr_InvalidConnection;
    }
    return requestEdit({connection.destNode, connection.destInputNumber, connectionOf(connection)});
}

OSStatus Graph::setInputCallback(AUNode node, UInt32 input,
                                 const AURenderCallbackStruct& callback) {
    const Unit::ListenerDelay listeners;
    const std::lock_guard lock(lock_);
    if (findNode(node) == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    const auto there = findInput(node, input);
    if (there != interactions_.end() && isConnection(*there)) {
        return kAUGraphErr_InvalidConnection;
    }
    if (callback.inputProc == nullptr) {
        return disconnect(node, input);
    }
    return requestEdit({node, input, callbackOf(node, input, callback)});
}

OSStatus Graph::disconnect(AUNode node, UInt32 input) {
    const Unit::ListenerDelay listeners;
    const std::lock_guard lock(lock_);
    if (findNode(node) == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    if (findInput(node, input) == interactions_.end()) {
        return noErr;
    }
    return requestEdit({node, input, {}});
}

OSStatus Graph::clearConnections() {
    const Unit::ListenerDelay listeners;
    const std::lock_guard lock(lock_);
    OSStatus status = noErr;
    const std::vector<AUNodeInteraction> all = interactions_;
    for (const AUNodeInteraction& interaction : all) {
        const auto& connection = interaction.nodeInteraction.connection;
        const auto& callback = interaction.nodeInteraction.inputCallback;
        const OSStatus one = isConnection(interaction)
                                 ? disconnect(connection.destNode, connection.destInputNumber)
                                 : disconnect(callback.destNode, callback.destInputNumber);
        if (status == noErr) {
            status = one;
        }
    }
    return status;
}

/// Records what the program wants and, unless it has to wait for an update or for the graph to be
/// initialised, brings it to the units at once.
OSStatus Graph::requestEdit(const Edit& edit) {
    const bool atOnce = open_ && initialized_ && !outputRuns();
    if (atOnce) {
        // What was left from the time when the graph ran comes first; what of it cannot be done is
        // dropped, and no reason not to do this.
        while (!pending_.empty()) {
            static_cast<void>(applyPending(true));
        }
    }
    const std::vector<AUNodeInteraction> before = interactions_;
    forgetInteraction(edit);
    if (edit.interaction.nodeInteractionType != 0) {
        interactions_.push_back(edit.interaction);
    }
    if (atOnce) {
        const OSStatus status = applyEdit(edit);
        if (status != noErr) {
            interactions_ = before;
        }
        return status;
    }
    if (open_) {  // opening starts from the interactions
        queueEdit(edit);
    }
    return noErr;
}

void Graph::queueEdit(const Edit& edit) {
    std::erase_if(pending_, [&](const Edit& known) {
        return known.node == edit.node && known.input == edit.input;
    });
    pending_.push_back(edit);
}

OSStatus Graph::applyEdit(const Edit& edit) {
    const Node* const node = findNode(edit.node);
    if (node == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    const UnitTable::Access unit(units(), node->unit);
    if (!unit) {
        return kAudioComponentErr_InstanceInvalidated;
    }
    const AUNodeInteraction& interaction = edit.interaction;
    std::vector<AudioUnit> done;
    OSStatus status = noErr;
    if (interaction.nodeInteractionType == 0) {
        status = unit->setProperty(
            {kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, edit.input}, nullptr, 0);
        // Taking away what the unit never had room for is done already.
        return status == kAudioUnitErr_InvalidElement ? OSStatus{noErr} : status;
    }
    if (isConnection(interaction)) {
        const Node* const source = findNode(interaction.nodeInteraction.connection.sourceNode);
        if (source == nullptr) {
            return kAUGraphErr_NodeNotFound;
        }
        const AudioUnitConnection connection{
            source->unit, interaction.nodeInteraction.connection.sourceOutputNumber, edit.input};
        status = unit->setProperty(
            {kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, edit.input}, &connection,
            sizeof connection);
        if (status == noErr && initialized_) {
            status = initializeNode(source->id, done);
        }
    } else {
        const AURenderCallbackStruct& callback = interaction.nodeInteraction.inputCallback.cback;
        status = unit->setProperty(
            {kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, edit.input}, &callback,
            sizeof callback);
    }
    if (status == noErr && initialized_) {
        status = initializeNode(edit.node, done);
    }
    return status;
}

/// Brings pending edits to the units, in order, up to the first that fails. A failed one is
/// dropped with its interaction, or stays to be tried again.
OSStatus Graph::applyPending(bool dropFailed) {
    while (!pending_.empty()) {
        const Edit edit = pending_.front();
        const OSStatus status = applyEdit(edit);
        if (status == noErr || dropFailed) {
            pending_.erase(pending_.begin());
        }
        if (status != noErr) {
            if (dropFailed) {
                forgetInteraction(edit);
            }
            return status;
        }
    }
    return noErr;
}

void Graph::forgetInteraction(const Edit& edit) {
    const auto there = findInput(edit.node, edit.input);
    if (there != interactions_.end()) {
        interactions_.erase(there);
    }
}

OSStatus Graph::update(Boolean* isUpdated) {
    const Unit::ListenerDelay listeners;
    const bool onRenderThread = Unit::isInsideAnySlice();
    std::unique_lock lock(lock_, std::defer_lock);
    if (!onRenderThread) {
        lock.lock();
    } else if (!lock.try_lock()) {
        // Another thread edits the graph; a render thread does not wait for it but tries again.
        if (isUpdated == nullptr) {
            return kAUGraphErr_CannotDoInCurrentContext;
        }
        *isUpdated = 0;
        return noErr;
    }
    const AudioUnit output = outputUnit();
    OSStatus status = noErr;
    const std::uint64_t slice = updateUnits(output, status);
    if (status != noErr) {
        return status;
    }
    std::vector<AudioUnit> doomed = slice == 0 ? takeRemovedUnits() : std::vector<AudioUnit>{};
    lock.unlock();
    destroyUnits(doomed);
    if (isUpdated != nullptr) {
        *isUpdated = slice == 0 || onRenderThread ? 1 : 0;
        return noErr;
    }
    if (slice == 0 || onRenderThread) {
        return noErr;
    }
    if (!waitForSlice(output, slice)) {
        return kAUGraphErr_CannotDoInCurrentContext;
    }
    lock.lock();
    if (unsettledSlice_ == slice) {
        unsettledSlice_ = 0;
        doomed = takeRemovedUnits();
    }
    lock.unlock();
    destroyUnits(doomed);
    return noErr;
}

/// Applies what is pending. Returns the slice that may still be rendered without it, 0 for none.
std::uint64_t Graph::updateUnits(AudioUnit output, OSStatus& status) {
    const UnitTable::Access unit(units(), output);
    if (!initialized_ && !(unit && unit->isRunning())) {
        return 0;
    }
    const bool edited = !pending_.empty() || !removedUnits_.empty();
    status = applyPending(true);
    const std::uint64_t now = unit ? unit->sliceCount() : 0;
    if (edited) {
        const bool inSlice = (now & 1U) != 0;
        unsettledSlice_ = inSlice ? now : 0;
    } else if (unsettledSlice_ != now) {
        unsettledSlice_ = 0;
    }
    return unsettledSlice_;
}

std::vector<AudioUnit> Graph::takeRemovedUnits() {
    return std::exchange(removedUnits_, {});
}

bool Graph::waitForSlice(AudioUnit output, std::uint64_t slice) {
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    while (true) {
        {
            const UnitTable::Access unit(units(), output);
            if (!unit || unit->sliceCount() != slice) {
                return true;
            }
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        // Waking a waiter would be a system call on the render thread, so the waiter polls.
        std::this_thread::sleep_for(kWaitStep);
    }
}

OSStatus Graph::interactionCount(UInt32& count) {
    const std::lock_guard lock(lock_);
    count = static_cast<UInt32>(interactions_.size());
    return noErr;
}

OSStatus Graph::interactionInfo(UInt32 index, AUNodeInteraction& interaction) {
    const std::lock_guard lock(lock_);
    if (index >= interactions_.size()) {
        return kAudio_ParamError;
    }
    interaction = interactions_[index];
    return noErr;
}

OSStatus Graph::nodeInteractionCount(AUNode node, UInt32& count) {
    const std::lock_guard lock(lock_);
    if (findNode(node) == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    count = static_cast<UInt32>(std::count_if(
        interactions_.begin(), interactions_.end(),
        [&](const AUNodeInteraction& interaction) { return concerns(interaction, node); }));
    return noErr;
}

OSStatus Graph::nodeInteractions(AUNode node, UInt32& count, AUNodeInteraction* interactions) {
    const std::lock_guard lock(lock_);
    if (findNode(node) == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    UInt32 written = 0;
    for (const AUNodeInteraction& interaction : interactions_) {
        if (concerns(interaction, node) && written < count) {
            interactions[written++] = interaction;
        }
    }
    count = written;
    return noErr;
}

}  // namespace tqplatform
