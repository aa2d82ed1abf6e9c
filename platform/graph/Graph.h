#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <mutex>
#include <vector>

#include "common/ForkLocks.h"
#include "component/Component.h"
#include "component/HandleTable.h"
#include "unit/Unit.h"

namespace tqplatform {

/// Nodes, their interactions, and what of it has reached the units.
///
/// Interactions are kept as the program asked for them; what the units do not know yet is in a
/// list of pending edits. An edit reaches a unit by one published plan, so it can be made at any
/// time: a render that is under way ends with the old plan and the next one has the new one.
///
/// The lock is never held while something waits for a slice to end: callbacks of that slice may
/// call the graph.
class Graph {
  public:
    Graph() = default;
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    /// For the handle table.
    void setHandle(void* handle) noexcept { handle_ = static_cast<AUGraph>(handle); }
    /// For the handle table: stops, uninitialises and disposes of all units.
    void close() { static_cast<void>(closeUnits()); }

    // Named like the C functions they stand behind.
    OSStatus addNode(const AudioComponentDescription& description, AUNode& node);
    OSStatus removeNode(AUNode node);
    OSStatus nodeCount(UInt32& count);
    OSStatus indexedNode(UInt32 index, AUNode& node);
    OSStatus nodeInfo(AUNode node, AudioComponentDescription* description, AudioUnit* unit);
    OSStatus connect(const AUNodeConnection& connection);
    OSStatus setInputCallback(AUNode node, UInt32 input, const AURenderCallbackStruct& callback);
    OSStatus disconnect(AUNode node, UInt32 input);
    OSStatus clearConnections();
    OSStatus interactionCount(UInt32& count);
    OSStatus interactionInfo(UInt32 index, AUNodeInteraction& interaction);
    OSStatus nodeInteractionCount(AUNode node, UInt32& count);
    OSStatus nodeInteractions(AUNode node, UInt32& count, AUNodeInteraction* interactions);
    OSStatus update(Boolean* isUpdated);
    OSStatus open();
    OSStatus closeUnits();
    OSStatus initialize();
    OSStatus uninitialize();
    OSStatus start();
    OSStatus stop();
    OSStatus isOpen(Boolean& open);
    OSStatus isInitialized(Boolean& initialized);
    OSStatus isRunning(Boolean& running);
    OSStatus cpuLoad(Float32& load);
    OSStatus maximumCpuLoad(Float32& load);
    OSStatus addRenderNotify(AURenderCallback proc, void* refCon);
    OSStatus removeRenderNotify(AURenderCallback proc, void* refCon);
    /// Prints the graph on standard error.
    void show();

  private:
    struct Node {
        AUNode id;
        const Component* component;
        AudioUnit unit;  ///< null while the graph is closed
    };
    struct Notify {
        AURenderCallback proc;
        void* refCon;
        bool operator==(const Notify&) const = default;
    };
    /// One input and what is to feed it: an interaction, or nothing (type 0).
    struct Edit {
        AUNode node;
        UInt32 input;
        AUNodeInteraction interaction;
    };

    [[nodiscard]] Node* findNode(AUNode node);
    [[nodiscard]] Node* outputNode();
    [[nodiscard]] AudioUnit outputUnit();
    [[nodiscard]] bool outputRuns();
    [[nodiscard]] std::vector<AUNodeInteraction>::iterator findInput(AUNode node, UInt32 input);
    [[nodiscard]] static bool concerns(const AUNodeInteraction& interaction, AUNode node);

    OSStatus makeNodeUnit(Node& node);
    void destroyUnits(std::vector<AudioUnit>& doomed);
    OSStatus requestEdit(const Edit& edit);
    void queueEdit(const Edit& edit);
    OSStatus applyEdit(const Edit& edit);
    OSStatus applyPending(bool dropFailed);
    OSStatus initializeNode(AUNode node, std::vector<AudioUnit>& done);
    OSStatus initializeInvolved(std::vector<AudioUnit>& done);
    static void uninitializeAll(const std::vector<AudioUnit>& handles);
    void forgetInteraction(const Edit& edit);
    [[nodiscard]] std::uint64_t updateUnits(AudioUnit output, OSStatus& status);
    [[nodiscard]] std::vector<AudioUnit> takeRemovedUnits();
    [[nodiscard]] static bool waitForSlice(AudioUnit output, std::uint64_t slice);

    AUGraph handle_ = nullptr;
    std::recursive_mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Graph, lock_};
    std::vector<Node> nodes_;
    std::vector<AUNodeInteraction> interactions_;
    std::vector<Edit> pending_;
    std::vector<Notify> notifies_;
    std::vector<AudioUnit> removedUnits_;  ///< to be disposed of when no slice can have them
    AUNode lastNode_ = 0;
    bool open_ = false;
    bool initialized_ = false;
    std::uint64_t unsettledSlice_ = 0;  ///< the slice that may still render without the last edits
};

using GraphTable = HandleTable<Graph>;

/// All graphs of the process.
[[nodiscard]] GraphTable& graphs();

}  // namespace tqplatform
