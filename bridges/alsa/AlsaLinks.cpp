#include "bridges/alsa/AlsaLinks.h"

namespace tq::bridges {

AlsaLinks& AlsaLinks::shared() {
    static auto* const instance = new AlsaLinks;
    return *instance;
}

void AlsaLinks::link(const void* first, const void* second) {
    const std::scoped_lock guard(lock_);
    members_.reserve(members_.size() + 2);
    if (find(first) == members_.end()) {
        members_.push_back({first, ++lastGroup_});
    }
    if (find(second) == members_.end()) {
        members_.push_back({second, 0});
    }
    find(second)->group = find(first)->group;
    hasLinks_.store(true, std::memory_order_relaxed);
}

void AlsaLinks::unlink(const void* pcm) {
    if (!hasLinks_.load(std::memory_order_relaxed)) {
        return;
    }
    const std::scoped_lock guard(lock_);
    if (const auto own = find(pcm); own != members_.end()) {
        members_.erase(own);
        hasLinks_.store(!members_.empty(), std::memory_order_relaxed);
    }
}

}  // namespace tq::bridges
