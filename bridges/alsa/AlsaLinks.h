#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <vector>

#include "common/ForkLocks.h"

namespace tq::bridges {

/// Which pcms the program has linked: a call that pauses, stops or prepares one of them does it to
/// all. Programs hardly ever link, so a call on any pcm costs one load as long as nothing is.
class AlsaLinks {
  public:
    /// Made on first use, never destroyed.
    static AlsaLinks& shared();

    /// [host thread] The second joins the first one's.
    void link(const void* first, const void* second);
    /// [host thread] It stands alone again; nothing happens to one that does.
    void unlink(const void* pcm);

    /// [any thread] For the pcm and all that are linked with it. `work` calls nothing of this.
    template <class Work>
    void forAll(const void* pcm, Work work) {
        work(pcm);
        // Whoever knows of a link comes behind the call that made it.
        if (!hasLinks_.load(std::memory_order_relaxed)) {
            return;
        }
        const std::scoped_lock guard(lock_);
        const auto own = find(pcm);
        for (const Member& each : members_) {
            if (own != members_.end() && each.group == own->group && each.pcm != pcm) {
                work(each.pcm);
            }
        }
    }

  private:
    struct Member {
        const void* pcm;
        std::size_t group;
    };

    AlsaLinks() = default;
    [[nodiscard]] std::vector<Member>::iterator find(const void* pcm) {
        return std::find_if(members_.begin(), members_.end(),
                            [&](const Member& each) { return each.pcm == pcm; });
    }

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::NativeStreams, lock_};
    std::atomic<bool> hasLinks_{false};  ///< written under the lock
    std::vector<Member> members_;
    std::size_t lastGroup_ = 0;
};

}  // namespace tq::bridges
