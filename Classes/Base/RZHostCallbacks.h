#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "common/ForkLocks.h"

/// The host's own render callback of one unit or one node, as far as calls have told of it.
struct RZHostCallback {
    AURenderCallbackStruct callback{};  ///< null procedure: none, or unknown
    UInt32 place = 0;                   ///< a unit's scope; of a node, input 0 alone
    bool isOurs = false;     ///< ours stands in its place, with the unit or graph as reference
    bool isForeign = false;  ///< a unit was given a source that ours does not stand before
    bool isQueued = false;   ///< the graph takes the next two when its edits are carried out
    bool isOursNext = false;
    AURenderCallbackStruct next{};
    bool haveOthersQueued = false;  ///< other inputs of the graph wait for that update too
    bool isBehindOthers = false;    ///< and were queued before
    std::uint64_t turn = 0;  ///< grows with every note: of a unit's and its node's, the later holds

    /// The graph's edits have been carried out, or are about to be.
    [[nodiscard]] RZHostCallback updated() const {
        RZHostCallback now = *this;
        if (isQueued) {
            now.callback = next;
            now.isOurs = isOursNext;
            now.isQueued = false;
        }
        now.haveOthersQueued = false;
        now.isBehindOthers = false;
        return now;
    }
};

/// What the host's callback is behind ours, for every unit and graph that is alive: also where
/// there is no capture object (none could be made, or it has gone), so that a callback that was
/// taken over can be put back, called, or taken over again.
///
/// Entries are by handle, units and graphs alike; those of units and graphs that are gone are swept
/// out when the list has doubled. One lock, held for a look-up or a change alone.
class RZHostCallbacks {
  public:
    /// The one instance, made on first use, never destroyed.
    static RZHostCallbacks& shared();

    RZHostCallbacks() = default;
    RZHostCallbacks(const RZHostCallbacks&) = delete;
    RZHostCallbacks& operator=(const RZHostCallbacks&) = delete;

    /// [host thread] A handle that was given out: whatever bore it before is gone.
    void unitMade(AudioUnit unit);
    void graphMade(AUGraph graph);
    /// [host thread] Throws without memory, and only for a handle that is new here.
    void note(AudioUnit unit, const RZHostCallback& callback);
    void note(AUGraph graph, const RZHostCallback& callback);
    /// [host thread] Whether the graph has been given a callback that ours does not stand before,
    /// and that waits.
    void noteOthersQueued(AUGraph graph, bool haveOthers);
    /// [host thread] A voice engine's: never to be captured, whatever becomes of it. Both last
    /// until the handle is given out again.
    void markAlone(AudioUnit unit);
    /// [host thread] A graph's: what the graph has for its node may lie over what the unit was
    /// given.
    void markNodes(AudioUnit unit);
    /// [host thread] Whether edits of the graph have been carried out since its output unit was
    /// made: that unit may have a callback then, which stays until the next edits are.
    void markCarriedOut(AUGraph graph, bool isCarriedOut);
    [[nodiscard]] bool isCarriedOut(AUGraph graph) const;
    [[nodiscard]] bool isAlone(AudioUnit unit) const;
    [[nodiscard]] bool isNodes(AudioUnit unit) const;
    /// [any thread] Takes the lock. An empty entry for an unknown handle.
    [[nodiscard]] RZHostCallback of(const void* handle) const;
    [[nodiscard]] bool isKnown(const void* handle) const;

  private:
    enum class Kind : std::uint8_t { Unit, Graph };
    struct Entry {
        const void* handle;
        Kind kind;
        RZHostCallback callback;
        bool isAlone = false;
        bool isNodes = false;
        bool isCarriedOut = false;
    };
    static constexpr std::size_t kFirstSweep = 64;

    /// Calls `change` with the handle's entry, a new one if need be.
    template <class Change>
    void edit(const void* handle, Kind kind, Change&& change);
    [[nodiscard]] const Entry* find(const void* handle) const;
    void sweep();
    [[nodiscard]] static bool isGone(const Entry& entry);

    mutable std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::HostCallbacks, lock_};
    std::vector<Entry> entries_;
    std::size_t sweepAt_ = kFirstSweep;
    std::uint64_t turn_ = 0;
};
