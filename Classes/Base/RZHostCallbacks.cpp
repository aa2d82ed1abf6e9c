#include "RZHostCallbacks.h"

#include <algorithm>

RZHostCallbacks& RZHostCallbacks::shared() {
    static auto* const instance = new RZHostCallbacks;
    return *instance;
}

template <class Change>
void RZHostCallbacks::edit(const void* handle, Kind kind, Change&& change) {
    if (handle == nullptr) {
        return;
    }
    bool isFull = false;
    {
        const std::scoped_lock guard(lock_);
        auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.handle == handle; });
        if (found == entries_.end()) {
            found = entries_.insert(entries_.end(), {handle, kind, {}});
        }
        change(*found);
        isFull = entries_.size() >= sweepAt_;
    }
    if (isFull) {
        sweep();
    }
}

void RZHostCallbacks::unitMade(AudioUnit unit) {
    edit(unit, Kind::Unit, [&](Entry& entry) {
        entry = {unit, Kind::Unit, {}};
        entry.callback.turn = ++turn_;
    });
}

void RZHostCallbacks::graphMade(AUGraph graph) {
    edit(graph, Kind::Graph, [&](Entry& entry) {
        entry = {graph, Kind::Graph, {}};
        entry.callback.turn = ++turn_;
    });
}

void RZHostCallbacks::note(AudioUnit unit, const RZHostCallback& callback) {
    edit(unit, Kind::Unit, [&](Entry& entry) {
        entry.callback = callback;
        entry.callback.turn = ++turn_;
    });
}

void RZHostCallbacks::note(AUGraph graph, const RZHostCallback& callback) {
    edit(graph, Kind::Graph, [&](Entry& entry) {
        entry.callback = callback;
        entry.callback.turn = ++turn_;
    });
}

void RZHostCallbacks::noteOthersQueued(AUGraph graph, bool haveOthers) {
    edit(graph, Kind::Graph,
         [haveOthers](Entry& entry) { entry.callback.haveOthersQueued = haveOthers; });
}

void RZHostCallbacks::markAlone(AudioUnit unit) {
    edit(unit, Kind::Unit, [](Entry& entry) { entry.isAlone = true; });
}

void RZHostCallbacks::markNodes(AudioUnit unit) {
    edit(unit, Kind::Unit, [](Entry& entry) { entry.isNodes = true; });
}

void RZHostCallbacks::markCarriedOut(AUGraph graph, bool isCarriedOut) {
    edit(graph, Kind::Graph, [&](Entry& entry) { entry.isCarriedOut = isCarriedOut; });
}

bool RZHostCallbacks::isCarriedOut(AUGraph graph) const {
    const std::scoped_lock guard(lock_);
    const Entry* const entry = find(graph);
    return entry != nullptr && entry->isCarriedOut;
}

const RZHostCallbacks::Entry* RZHostCallbacks::find(const void* handle) const {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.handle == handle; });
    return found == entries_.end() ? nullptr : &*found;
}

bool RZHostCallbacks::isAlone(AudioUnit unit) const {
    const std::scoped_lock guard(lock_);
    const Entry* const entry = find(unit);
    return entry != nullptr && entry->isAlone;
}

bool RZHostCallbacks::isNodes(AudioUnit unit) const {
    const std::scoped_lock guard(lock_);
    const Entry* const entry = find(unit);
    return entry != nullptr && entry->isNodes;
}

RZHostCallback RZHostCallbacks::of(const void* handle) const {
    const std::scoped_lock guard(lock_);
    const Entry* const entry = find(handle);
    return entry == nullptr ? RZHostCallback{} : entry->callback;
}

bool RZHostCallbacks::isKnown(const void* handle) const {
    const std::scoped_lock guard(lock_);
    return find(handle) != nullptr;
}

/// The platform is asked without the lock, which render threads take. A handle whose unit or graph
/// is gone stays so until it is given out again, which unitMade() and graphMade() tell.
void RZHostCallbacks::sweep() {
    std::vector<Entry> gone;
    {
        const std::scoped_lock guard(lock_);
        gone = entries_;
    }
    std::erase_if(gone, [](const Entry& entry) { return !isGone(entry); });
    const std::scoped_lock guard(lock_);
    std::erase_if(entries_, [&](const Entry& entry) {
        return std::any_of(gone.begin(), gone.end(), [&](const Entry& other) {
            // The turn tells whether the handle was given out again meanwhile.
            return other.handle == entry.handle && other.callback.turn == entry.callback.turn;
        });
    });
    sweepAt_ = std::max(kFirstSweep, 2 * entries_.size());
}

bool RZHostCallbacks::isGone(const Entry& entry) {
    if (entry.kind == Kind::Unit) {
        const auto unit = static_cast<AudioUnit>(const_cast<void*>(entry.handle));
        return AudioComponentInstanceGetComponent(unit) == nullptr;
    }
    Boolean isOpen = 0;
    return AUGraphIsOpen(static_cast<AUGraph>(const_cast<void*>(entry.handle)), &isOpen) != 0;
}
