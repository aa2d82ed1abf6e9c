#pragma once

#include <atomic>
#include <mutex>

#include "common/ForkLocks.h"

namespace korva_audio_utils {

/// A mutex for two kinds of holders: those that keep it for one short copy, block after block, and
/// those that keep it seldom and may keep it long. The first pay one locked instruction for lock
/// and unlock together, where a std::mutex takes two, and the second of them waits for the copy to
/// reach the cache. Not recursive.
///
/// - Invariant: either one thread copies, or one thread holds for long, or nobody does anything.
/// - isCopying_ is set by whoever copies and cleared with release order, which publishes the copy.
/// - isHeldLong_ is set and cleared by the holder of mutex_ only, cleared with release order.
/// - Each side stores its own word before it loads the other's, both sequentially consistent, so at
///   least one of them sees the other. The copier gives way and sleeps on mutex_; the long holder
///   waits for the copy in progress to end.
class CopyMutex {
  public:
    CopyMutex() = default;
    ~CopyMutex() = default;
    CopyMutex(const CopyMutex&) = delete;
    CopyMutex& operator=(const CopyMutex&) = delete;

    /// [render thread] Held for a copy. Real-time safe unless somebody holds for long.
    class ForCopy {
      public:
        explicit ForCopy(CopyMutex& mutex) noexcept : mutex_(mutex) {
            if (!mutex_.TryToCopy()) [[unlikely]] {
                mutex_.WaitToCopy();
            }
        }
        ~ForCopy() { mutex_.isCopying_.store(false, std::memory_order_release); }
        ForCopy(const ForCopy&) = delete;
        ForCopy& operator=(const ForCopy&) = delete;

      private:
        CopyMutex& mutex_;
    };

    /// [any thread] Held for as long as it takes. Waits for the copy in progress.
    class ForLong {
      public:
        explicit ForLong(CopyMutex& mutex);
        ~ForLong() { mutex_.isHeldLong_.store(false, std::memory_order_release); }
        ForLong(const ForLong&) = delete;
        ForLong& operator=(const ForLong&) = delete;

      private:
        CopyMutex& mutex_;
        std::lock_guard<std::mutex> lock_;
    };

  private:
    bool TryToCopy() noexcept {
        if (isCopying_.exchange(true, std::memory_order_seq_cst)) {
            return false;
        }
        if (isHeldLong_.load(std::memory_order_seq_cst)) [[unlikely]] {
            isCopying_.store(false, std::memory_order_release);
            return false;
        }
        return true;
    }
    void WaitToCopy() noexcept;
    /// Only in the child of a fork, where nobody copies.
    void ForgetAfterFork() noexcept {
        isCopying_.store(false, std::memory_order_relaxed);
        isHeldLong_.store(false, std::memory_order_relaxed);
    }

    std::atomic<bool> isCopying_{false};
    std::atomic<bool> isHeldLong_{false};
    std::mutex mutex_;
    tqcommon::ForkLock atFork_{
        tqcommon::ForkOrder::Ring,
        mutex_,
        {[](void* mutex) { static_cast<CopyMutex*>(mutex)->ForgetAfterFork(); }, this}};
};

}  // namespace korva_audio_utils
