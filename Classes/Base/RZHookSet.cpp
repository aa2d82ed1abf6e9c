#include "RZHookSet.h"

#include <audio_hook_config.h>
#include <vector>

#include "RZUnitDisposal.h"
#include "common/ForkLocks.h"
#include "common/MemoryProtection.h"

namespace {

// Slots that the loader has made read-only could not be redirected in some sandboxes, and others
// could: half of a program's calls would be seen.

/// Says so once.
bool mayRedirect() {
    static const bool can = [] {
        const bool found = tqcommon::canProtectMemory();
        if (!found) {
            NSLog("[RZReplay] memory cannot be made writable here, the hooks stay out");
        }
        return found;
    }();
    return can;
}

}  // namespace

/// The sets are there before any constructor has run, so forks learn of their locks at the first
/// start.
void RZHookSet::nameLocks() {
    using tqcommon::ForkLock;
    using tqcommon::ForkOrder;
    static ForkLock disposal(ForkOrder::Installation, RZDisposalHooks.lock_);
    static ForkLock ending(ForkOrder::Installation, RZEndingHooks.lock_);
    static ForkLock edit(ForkOrder::Installation, RZEditHooks.lock_);
    static ForkLock interaction(ForkOrder::Installation, RZInteractionHooks.lock_);
    static ForkLock graph(ForkOrder::Installation, RZGraphHooks.lock_);
    static ForkLock unit(ForkOrder::Installation, RZUnitHooks.lock_);
}

void RZHookSet::start(std::initializer_list<RZHookSet*> sets) {
    nameLocks();
    std::vector<std::unique_lock<std::mutex>> guards;
    std::vector<RZHookSet*> fresh;
    std::vector<TQRebinding> records;
    for (RZHookSet* const set : sets) {
        guards.emplace_back(set->lock_);
        if (!set->started_) {
            fresh.push_back(set);
            const auto rows = set->plan_.rows();
            records.insert(records.end(), rows.begin(), rows.end());
        }
    }
    if (fresh.empty() || !mayRedirect()) {
        return;
    }
    for (const RZHookSet* const set : fresh) {
        if (set->plan_.announcement != nullptr) {
            NSLog("%s", set->plan_.announcement);
        }
    }
    // Nothing above counts yet: without the memory for it, all of them can be started later.
    for (RZHookSet* const set : fresh) {
        set->started_ = true;
    }
    korva_audio_utils::hooksAreInstalled(true);
    tqreplay_rebind_symbols(records.data(), records.size());
    for (const RZHookSet* const set : fresh) {
        if (set->plan_.afterwards != nullptr) {
            set->plan_.afterwards();
        }
    }
}
