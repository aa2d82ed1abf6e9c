#include "graph/Graph.h"

#include <algorithm>

#include "common/NeverDestroyed.h"
#include "component/Status.h"

namespace tqplatform {

GraphTable& graphs() {
    static tqcommon::NeverDestroyed<GraphTable> table;
    return *table;
}

Graph::Node* Graph::findNode(AUNode node) {
    const auto found = std::find_if(nodes_.begin(), nodes_.end(),
                                    [&](const Node& known) { return known.id == node; });
    return found == nodes_.end() ? nullptr : &*found;
}

Graph::Node* Graph::outputNode() {
    const auto found = std::find_if(nodes_.begin(), nodes_.end(), [](const Node& node) {
        return node.component->description.componentType == kAudioUnitType_Output;
    });
    return found == nodes_.end() ? nullptr : &*found;
}

AudioUnit Graph::outputUnit() {
    const Node* const node = outputNode();
    return node != nullptr ? node->unit : nullptr;
}

bool Graph::outputRuns() {
    const UnitTable::Access unit(units(), outputUnit());
    return unit && unit->isRunning();
}

OSStatus Graph::makeNodeUnit(Node& node) {
    const OSStatus status = makeUnit(*node.component, node.unit);
    if (status != noErr) {
        return status;
    }
    if (node.component->description.componentType == kAudioUnitType_Output) {
        const UnitTable::Access unit(units(), node.unit);
        for (const Notify& notify : notifies_) {
            static_cast<void>(unit->addRenderNotify(notify.proc, notify.refCon, this));
        }
    }
    return noErr;
}

void Graph::destroyUnits(std::vector<AudioUnit>& doomed) {
    for (const AudioUnit unit : doomed) {
        // The program may have disposed of a unit of the graph itself.
        static_cast<void>(units().remove(unit, Unit::mayWait()));
    }
    doomed.clear();
}

OSStatus Graph::addNode(const AudioComponentDescription& description, AUNode& node) {
    const Component* const component = nextComponent(nullptr, description);
    if (component == nullptr) {
        return kAUGraphErr_InvalidAudioUnit;
    }
    const std::lock_guard lock(lock_);
    if (component->description.componentType == kAudioUnitType_Output && outputNode() != nullptr) {
        return kAUGraphErr_OutputNodeErr;
    }
    nodes_.reserve(nodes_.size() + 1);
    Node added{lastNode_ + 1, component, nullptr};
    if (open_) {
        const OSStatus status = makeNodeUnit(added);
        if (status != noErr) {
            return status;
        }
    }
    nodes_.push_back(added);
    node = ++lastNode_;
    return noErr;
}

OSStatus Graph::removeNode(AUNode node) {
    const Unit::ListenerDelay listeners;
    std::vector<AudioUnit> doomed;
    {
        const std::lock_guard lock(lock_);
        const Node* const found = findNode(node);
        if (found == nullptr) {
            return kAUGraphErr_NodeNotFound;
        }
        const bool running = outputRuns();
        if (running && found == outputNode()) {
            return kAUGraphErr_OutputNodeErr;
        }
        const Node removed = *found;
        // What it fed goes quiet; what fed it needs no edit, since its unit goes.
        std::vector<AUNodeInteraction> fed;
        for (const AUNodeInteraction& interaction : interactions_) {
            if (interaction.nodeInteractionType == kAUNodeInteraction_Connection &&
                interaction.nodeInteraction.connection.sourceNode == node &&
                interaction.nodeInteraction.connection.destNode != node) {
                fed.push_back(interaction);
            }
        }
        for (const AUNodeInteraction& interaction : fed) {
            const AUNodeConnection& connection = interaction.nodeInteraction.connection;
            static_cast<void>(disconnect(connection.destNode, connection.destInputNumber));
        }
        std::erase_if(interactions_, [&](const AUNodeInteraction& interaction) {
            return concerns(interaction, node);
        });
        std::erase_if(pending_, [&](const Edit& edit) { return edit.node == node; });
        std::erase_if(nodes_, [&](const Node& known) { return known.id == node; });
        if (removed.unit != nullptr) {
            (running ? removedUnits_ : doomed).push_back(removed.unit);
        }
    }
    destroyUnits(doomed);
    return noErr;
}

OSStatus Graph::nodeCount(UInt32& count) {
    const std::lock_guard lock(lock_);
    count = static_cast<UInt32>(nodes_.size());
    return noErr;
}

OSStatus Graph::indexedNode(UInt32 index, AUNode& node) {
    const std::lock_guard lock(lock_);
    if (index >= nodes_.size()) {
        return kAUGraphErr_NodeNotFound;
    }
    node = nodes_[index].id;
    return noErr;
}

OSStatus Graph::nodeInfo(AUNode node, AudioComponentDescription* description, AudioUnit* unit) {
    const std::lock_guard lock(lock_);
    const Node* const found = findNode(node);
    if (found == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    if (description != nullptr) {
        *description = found->component->description;
    }
    if (unit != nullptr) {
        *unit = found->unit;
    }
    return noErr;
}

OSStatus Graph::open() {
    std::vector<AudioUnit> doomed;
    OSStatus status = noErr;
    {
        const std::lock_guard lock(lock_);
        if (open_) {
            return noErr;
        }
        doomed.reserve(nodes_.size());
        for (Node& node : nodes_) {
            status = makeNodeUnit(node);
            if (status != noErr) {
                break;
            }
        }
        if (status == noErr) {
            open_ = true;
            // The new units know nothing yet.
            pending_.clear();
            for (const AUNodeInteraction& interaction : interactions_) {
                const AUNodeConnection& connection = interaction.nodeInteraction.connection;
                const AUNodeRenderCallback& callback = interaction.nodeInteraction.inputCallback;
                const bool isConnection =
                    interaction.nodeInteractionType == kAUNodeInteraction_Connection;
                pending_.push_back(
                    {isConnection ? connection.destNode : callback.destNode,
                     isConnection ? connection.destInputNumber : callback.destInputNumber,
                     interaction});
            }
        } else {
            for (Node& node : nodes_) {
                if (node.unit != nullptr) {
                    doomed.push_back(node.unit);
                    node.unit = nullptr;
                }
            }
        }
    }
    destroyUnits(doomed);
    return status;
}

OSStatus Graph::closeUnits() {
    OSStatus status = uninitialize();
    std::vector<AudioUnit> doomed;
    {
        const std::lock_guard lock(lock_);
        doomed = takeRemovedUnits();
        for (Node& node : nodes_) {
            if (node.unit != nullptr) {
                doomed.push_back(node.unit);
                node.unit = nullptr;
            }
        }
        open_ = false;
        initialized_ = false;
        pending_.clear();
    }
    destroyUnits(doomed);
    return status;
}

OSStatus Graph::initialize() {
    const Unit::ListenerDelay listeners;
    std::vector<AudioUnit> done;
    OSStatus status = noErr;
    try {
        const std::lock_guard lock(lock_);
        if (!open_) {
            return kAudioUnitErr_Uninitialized;
        }
        if (initialized_) {
            return noErr;
        }
        status = applyPending(false);
        if (status == noErr) {
            status = initializeInvolved(done);
        }
        initialized_ = status == noErr;
    } catch (...) {
        uninitializeAll(done);
        throw;
    }
    if (status != noErr) {
        uninitializeAll(done);
    }
    return status;
}

void Graph::uninitializeAll(const std::vector<AudioUnit>& handles) {
    for (const AudioUnit handle : handles) {
        const UnitTable::Access unit(units(), handle);
        if (unit) {
            static_cast<void>(unit->uninitialize());
        }
    }
}

OSStatus Graph::initializeInvolved(std::vector<AudioUnit>& done) {
    for (const Node& node : nodes_) {
        const bool involved = std::any_of(
            interactions_.begin(), interactions_.end(),
            [&](const AUNodeInteraction& interaction) { return concerns(interaction, node.id); });
        // The output unit always is: programs feed it without telling the graph.
        if (involved || &node == outputNode()) {
            const OSStatus status = initializeNode(node.id, done);
            if (status != noErr) {
                return status;
            }
        }
    }
    return noErr;
}

OSStatus Graph::initializeNode(AUNode node, std::vector<AudioUnit>& done) {
    const Node* const found = findNode(node);
    if (found == nullptr || found->unit == nullptr) {
        return kAUGraphErr_NodeNotFound;
    }
    const AudioUnit handle = found->unit;
    const UnitTable::Access unit(units(), handle);
    if (!unit) {
        return kAudioComponentErr_InstanceInvalidated;
    }
    const bool wasInitialized = unit->isInitialized();
    done.reserve(done.size() + 1);
    const OSStatus status = unit->initialize();
    if (status == noErr && !wasInitialized) {
        done.push_back(handle);
    }
    return status;
}

OSStatus Graph::uninitialize() {
    std::vector<AudioUnit> open;
    OSStatus status = stop();
    {
        const std::lock_guard lock(lock_);
        if (!initialized_) {
            return status;
        }
        initialized_ = false;
        for (const Node& node : nodes_) {
            open.push_back(node.unit);
        }
    }
    for (const AudioUnit handle : open) {
        const UnitTable::Access unit(units(), handle);
        const OSStatus one = unit ? unit->uninitialize() : OSStatus{noErr};
        if (status == noErr) {
            status = one;
        }
    }
    return status;
}

OSStatus Graph::start() {
    const Unit::ListenerDelay listeners;
    AudioUnit output = nullptr;
    {
        const std::lock_guard lock(lock_);
        if (!open_ || !initialized_) {
            return kAudioUnitErr_Uninitialized;
        }
        if (outputNode() == nullptr) {
            return kAUGraphErr_OutputNodeErr;
        }
        output = outputUnit();
        if (!outputRuns()) {
            const OSStatus status = applyPending(true);
            if (status != noErr) {
                return status;
            }
        }
    }
    const UnitTable::Access unit(units(), output);
    return unit ? unit->start() : kAudioComponentErr_InstanceInvalidated;
}

OSStatus Graph::stop() {
    AudioUnit output = nullptr;
    {
        const std::lock_guard lock(lock_);
        output = outputUnit();
    }
    const UnitTable::Access unit(units(), output);
    return unit ? unit->stop() : OSStatus{noErr};
}

OSStatus Graph::isOpen(Boolean& open) {
    const std::lock_guard lock(lock_);
    open = open_ ? 1 : 0;
    return noErr;
}

OSStatus Graph::isInitialized(Boolean& initialized) {
    const std::lock_guard lock(lock_);
    initialized = initialized_ ? 1 : 0;
    return noErr;
}

OSStatus Graph::isRunning(Boolean& running) {
    const std::lock_guard lock(lock_);
    running = outputRuns() ? 1 : 0;
    return noErr;
}

OSStatus Graph::cpuLoad(Float32& load) {
    const std::lock_guard lock(lock_);
    const UnitTable::Access unit(units(), outputUnit());
    load = unit ? unit->cpuLoad() : 0;
    return noErr;
}

OSStatus Graph::maximumCpuLoad(Float32& load) {
    const std::lock_guard lock(lock_);
    const UnitTable::Access unit(units(), outputUnit());
    load = unit ? unit->takeMaximumCpuLoad() : 0;
    return noErr;
}

OSStatus Graph::addRenderNotify(AURenderCallback proc, void* refCon) {
    if (proc == nullptr) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(lock_);
    const Notify notify{proc, refCon};
    if (std::find(notifies_.begin(), notifies_.end(), notify) != notifies_.end()) {
        return noErr;
    }
    notifies_.push_back(notify);
    const UnitTable::Access unit(units(), outputUnit());
    return unit ? unit->addRenderNotify(proc, refCon, this) : OSStatus{noErr};
}

OSStatus Graph::removeRenderNotify(AURenderCallback proc, void* refCon) {
    if (proc == nullptr) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(lock_);
    std::erase(notifies_, Notify{proc, refCon});
    const UnitTable::Access unit(units(), outputUnit());
    return unit ? unit->removeRenderNotify(proc, refCon, this) : OSStatus{noErr};
}

}  // namespace tqplatform
