#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstddef>
#include <optional>
#include <vector>

/// [host thread] What a graph has been asked to feed its nodes with, in the order of the requests:
/// also what waits to reach the units. An edit that fails when it reaches them is gone from there.
class RZInteractionList {
  public:
    /// One input of one node; an input has one interaction at most.
    struct Input {
        AUNode node;
        UInt32 number;
        bool operator==(const Input&) const = default;
    };

    /// As the graph has it, ours included. Throws without memory.
    [[nodiscard]] static RZInteractionList of(AUGraph graph);

    /// Whether an edit of the graph that was answered with `status`, and before which this was its
    /// list, has gone to the units if the graph stands still: so has what waited before it then.
    [[nodiscard]] bool isEdited(AUGraph graph, OSStatus status) const;
    /// Whether the node is connected to another one's input.
    [[nodiscard]] bool feedsAnother(AUNode node) const;
    /// Where the input stands in the list; none when nothing feeds it.
    [[nodiscard]] std::optional<std::size_t> find(const Input& input) const;
    /// The first place whose input nothing feeds any more in `later`.
    [[nodiscard]] std::optional<std::size_t> firstGone(const RZInteractionList& later) const;

  private:
    std::vector<AUNodeInteraction> all_;
};
