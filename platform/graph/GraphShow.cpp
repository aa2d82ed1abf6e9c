#include <cstdio>

#include "graph/Graph.h"

namespace tqplatform {

void Graph::show() {
    const std::lock_guard lock(lock_);
    std::fprintf(stderr, "AUGraph %p: %s, %s, %s\n", static_cast<void*>(handle_),
                 open_ ? "open" : "closed", initialized_ ? "initialised" : "not initialised",
                 outputRuns() ? "running" : "stopped");
    for (const Node& node : nodes_) {
        std::fprintf(stderr, "  node %d: %s, unit %p\n", node.id, node.component->name,
                     static_cast<void*>(node.unit));
    }
    for (const AUNodeInteraction& interaction : interactions_) {
        if (interaction.nodeInteractionType == kAUNodeInteraction_Connection) {
            const auto& connection = interaction.nodeInteraction.connection;
            std::fprintf(stderr, "  node %d bus %u -> node %d bus %u\n", connection.sourceNode,
                         connection.sourceOutputNumber, connection.destNode,
                         connection.destInputNumber);
        } else {
            const auto& callback = interaction.nodeInteraction.inputCallback;
            std::fprintf(stderr, "  callback %p -> node %d bus %u\n",
                         callback.cback.inputProcRefCon, callback.destNode,
                         callback.destInputNumber);
        }
    }
    if (!pending_.empty()) {
        std::fprintf(stderr, "  %zu edits wait for an update\n", pending_.size());
    }
}

}  // namespace tqplatform
