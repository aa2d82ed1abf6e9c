#include "RZHookSet.h"

#include <vector>

void RZHookSet::start(std::initializer_list<RZHookSet*> sets) {
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
    if (fresh.empty()) {
        return;
    }
    // The list is complete before any of them counts as started: lack of memory leaves none behind.
    for (RZHookSet* const set : fresh) {
        NSLog("%s", set->plan_.announcement);
        set->started_ = true;
    }
    tqreplay_rebind_symbols(records.data(), records.size());
    for (const RZHookSet* const set : fresh) {
        if (set->plan_.afterwards != nullptr) {
            set->plan_.afterwards();
        }
    }
}
