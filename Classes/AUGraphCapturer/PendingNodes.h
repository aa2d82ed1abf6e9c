#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <map>
#include <mutex>

#include "common/ForkLocks.h"

/// An output node that was added to a graph whose unit does not exist yet.
struct PendingNodeInfo {
    AUNode node;
    AudioComponentDescription desc;
    AURenderCallback inputProc;  ///< null until the host sets one
    void* inputProcRefCon;
};

/// [host thread] The output node of each graph; of several, the one that was added last.
class PendingNodes {
  public:
    static PendingNodes& shared() {
        static auto* const instance = new PendingNodes;
        return *instance;
    }

    void set(AUGraph graph, const PendingNodeInfo& info) {
        const std::scoped_lock guard(mutex_);
        nodes_[graph] = info;
    }
    /// True when that node is the graph's.
    bool setCallback(AUGraph graph, AUNode node, const AURenderCallbackStruct& callback) {
        const std::scoped_lock guard(mutex_);
        const auto found = nodes_.find(graph);
        if (found == nodes_.end() || found->second.node != node) {
            return false;
        }
        found->second.inputProc = callback.inputProc;
        found->second.inputProcRefCon = callback.inputProcRefCon;
        return true;
    }
    void forget(AUGraph graph) {
        const std::scoped_lock guard(mutex_);
        nodes_.erase(graph);
    }
    void erase(AUGraph graph, AUNode node) {
        const std::scoped_lock guard(mutex_);
        const auto found = nodes_.find(graph);
        if (found != nodes_.end() && found->second.node == node) {
            nodes_.erase(found);
        }
    }
    /// Shows the graph's entry to `use` under the lock; false when there is none.
    template <class Use>
    bool with(AUGraph graph, Use&& use) {
        const std::scoped_lock guard(mutex_);
        const auto found = nodes_.find(graph);
        if (found == nodes_.end()) {
            return false;
        }
        // A copy: `use` may come back and change the map.
        const PendingNodeInfo info = found->second;
        use(info);
        return true;
    }

  private:
    // Recursive: what `use` logs may reach a callback of the host that touches a graph.
    std::recursive_mutex mutex_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::PendingNodes, mutex_};
    std::map<AUGraph, PendingNodeInfo> nodes_;
};
