#pragma once

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <type_traits>

namespace tqcommon {

/// Where a lock stands in the order in which the code nests them, outermost first.
enum class ForkOrder : std::size_t {
    // Of the bridges.
    NativeStreams,
    Streams,
    // Of the capture library; render threads take those from GraphUpdate on.
    Installation,
    Operation,
    PendingNodes,
    GraphUpdate,
    Listeners,
    UnitMap,
    HostCallbacks,
    Observers,
    UnitFacts,
    Volume,
    BufferList,
    Ring,
    Statistics,
    Guard,
    Log,
    LogListeners,
    StreamReports,
    Handles,
    // Of the platform.
    Graph,
    Transition,
    Unit,
    UnitLists,
    HandleTable,
    Foundation,
    kCount
};

/// A child of fork() has one thread, and a copy of every lock as it is: held for ever if another
/// thread held it. So a fork first takes all locks that are named here, each library its own, in
/// the order in which the code nests them; the child finds them free and what they guard whole.
///
/// A fork waits for a lock like any other thread. Where the order does not hold, or somebody keeps
/// one for long, all are given back and taken again, and after kPatience the fork goes on without:
/// the child then makes those anew. What the forking thread holds by itself it holds in the child.
///
/// Invariant: `heads_` and what hangs on them change under `list_` only, which a fork holds from
/// its last look at them to its end. `turn_` is held by one fork at a time, and with it isTaken_,
/// isOwn_ and depth_ of every entry.
class ForkLock {
  public:
    /// Called in the child once all locks are free, on its only thread.
    struct InChild {
        void (*call)(void* object);  ///< null for none
        void* object;
    };
    /// Holds render threads off while inner locks are taken. `begin` is false when one was not done
    /// within that time; `end` follows each `begin` that was true, except in the child.
    struct Pause {
        bool (*begin)(std::uint64_t nanoseconds);
        void (*end)();
    };

    /// [host thread] Names `lock`, which goes after this one does: std::mutex,
    /// std::recursive_mutex, or one that has the native_handle() of the latter. Those before
    /// GraphUpdate live as long as the process.
    template <class Lock>
    ForkLock(ForkOrder order, Lock& lock, const InChild& inChild = {})
        : order_(static_cast<std::size_t>(order)),
          mutex_(lock.native_handle()),
          isRecursive_(!std::is_same_v<Lock, std::mutex>),
          inChild_(inChild) {
        const std::lock_guard guard(list_);
        next_ = heads_[order_];
        if (next_ != nullptr) {
            next_->previous_ = this;
        }
        heads_[order_] = this;
    }
    ~ForkLock() {
        const std::lock_guard guard(list_);
        (previous_ != nullptr ? previous_->next_ : heads_[order_]) = next_;
        if (next_ != nullptr) {
            next_->previous_ = previous_;
        }
    }
    ForkLock(const ForkLock&) = delete;
    ForkLock& operator=(const ForkLock&) = delete;

    /// [host thread] Another lock of the same kind has taken the place of the one that was named.
    template <class Lock>
    void follow(Lock& lock) {
        const std::lock_guard guard(list_);
        mutex_ = lock.native_handle();
        isTaken_ = false;
    }

    /// [any thread] Before `lock` is taken, for one that threads keep long and take again at once:
    /// woken, a waiting fork would find it taken every time. Whoever holds it already goes on.
    template <class Lock>
    static void letForkPass(Lock& lock) {
        while (isForkWaiting_.load(std::memory_order_relaxed) &&
               lock.native_handle()->__data.__owner != gettid()) {
            sleep(20'000);
        }
    }

    /// [host thread] Forks from here on heed this library's locks, and before those of other
    /// libraries that did so earlier. Once; later calls change nothing.
    static void watch() {
        static const int registered = pthread_atfork(prepare, finish, renew);
        static_cast<void>(registered);
    }
    /// [host thread] `pause` lives as long as the process.
    static void setPause(const Pause& pause) { pause_.store(&pause, std::memory_order_release); }

  private:
    static constexpr std::uint64_t kMillisecond = 1'000'000;
    static constexpr std::uint64_t kPatience = 2000 * kMillisecond;
    static constexpr std::uint64_t kPatienceForOne = 50 * kMillisecond;
    static constexpr auto kPausedBefore = static_cast<std::size_t>(ForkOrder::GraphUpdate);

    static std::uint64_t now() {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<std::uint64_t>(time.tv_sec) * 1000 * kMillisecond +
               static_cast<std::uint64_t>(time.tv_nsec);
    }
    static void sleep(long nanoseconds) {
        const timespec time{0, nanoseconds};
        nanosleep(&time, nullptr);
    }

    /// Whether the calling thread holds it, before the fork takes it: a mutex that is not recursive
    /// would not be taken twice, and one that is knows its owner by a number that the child's
    /// thread does not have.
    void look() {
        isOwn_ = mutex_->__data.__owner == gettid();
        depth_ = isOwn_ && isRecursive_ ? mutex_->__data.__count : 0;
    }
    bool tryTake() {
        look();
        isTaken_ = (isOwn_ && !isRecursive_) || pthread_mutex_trylock(mutex_) == 0;
        return isTaken_;
    }
    void giveBack() {
        if (isTaken_ && !(isOwn_ && !isRecursive_)) {
            pthread_mutex_unlock(mutex_);
        }
        isTaken_ = false;
    }
    void makeFree() {
        if (isOwn_ && !isRecursive_) {
            return;
        }
        // For tools that follow locks: it takes no effect on a recursive one, whose owner has
        // another number here.
        giveBack();
        // Not destroyed before: threads that waited for it are not in the child.
        if (isRecursive_) {
            std::construct_at(reinterpret_cast<std::recursive_mutex*>(mutex_));
        } else {
            std::construct_at(reinterpret_cast<std::mutex*>(mutex_));
        }
        for (; depth_ > 0; --depth_) {
            pthread_mutex_lock(mutex_);
        }
    }

    /// The first that is not taken, of those up to `order`, with `list_` held. Null when all are.
    static ForkLock* takeUpTo(std::size_t order) {
        for (std::size_t i = 0; i <= order; ++i) {
            for (ForkLock* entry = heads_[i]; entry != nullptr; entry = entry->next_) {
                if (!entry->isTaken_ && !entry->tryTake()) {
                    return entry;
                }
            }
        }
        return nullptr;
    }
    /// Without `list_`: others may name locks while they hold this one.
    void waitFor(std::uint64_t limit) {
        constexpr std::uint64_t kSecond = 1000 * kMillisecond;
        const timespec time{static_cast<time_t>(limit / kSecond),
                            static_cast<long>(limit % kSecond)};
        isForkWaiting_.store(true, std::memory_order_relaxed);
        isTaken_ = pthread_mutex_clocklock(mutex_, CLOCK_MONOTONIC, &time) == 0;
        isForkWaiting_.store(false, std::memory_order_relaxed);
    }
    /// Leaves with `list_` held. False when one could not be had.
    static bool takeAllUpTo(std::size_t order, std::uint64_t limit) {
        list_.lock();
        while (ForkLock* const missing = takeUpTo(order)) {
            if (now() >= limit) {
                return false;
            }
            list_.unlock();
            if (missing->order_ < kPausedBefore) {
                missing->waitFor(limit);
            } else {
                // Not slept on: it may go with its object as soon as the list is free.
                sleep(20'000);
            }
            list_.lock();
        }
        return true;
    }
    static bool begin(std::uint64_t limit) {
        // Only host threads wait meanwhile.
        if (!takeAllUpTo(kPausedBefore - 1, limit)) {
            return false;
        }
        if (const Pause* const pause = pause_.load(std::memory_order_acquire)) {
            list_.unlock();
            isPaused_ = pause->begin(kPatienceForOne);
            list_.lock();
            if (!isPaused_) {
                return false;
            }
        }
        list_.unlock();
        return takeAllUpTo(heads_.size() - 1, now() + kPatienceForOne);
    }
    static void end() {
        for (std::size_t i = heads_.size(); i-- > 0;) {
            for (ForkLock* entry = heads_[i]; entry != nullptr; entry = entry->next_) {
                entry->giveBack();
            }
        }
        if (isPaused_) {
            isPaused_ = false;
            pause_.load(std::memory_order_relaxed)->end();
        }
    }

    static void prepare() {
        turn_.lock();
        const std::uint64_t limit = now() + kPatience;
        while (!begin(limit)) {
            if (now() >= limit) {
                return;
            }
            end();
            list_.unlock();
            sleep(1'000'000);
        }
    }
    static void finish() {
        end();
        list_.unlock();
        turn_.unlock();
    }
    static void renew() {
        isPaused_ = false;
        for (ForkLock* const head : heads_) {
            for (ForkLock* entry = head; entry != nullptr; entry = entry->next_) {
                entry->makeFree();
                entry->isTaken_ = false;
            }
        }
        list_.unlock();
        turn_.unlock();
        // Those first that others stand on.
        for (std::size_t i = heads_.size(); i-- > 0;) {
            for (ForkLock* entry = heads_[i]; entry != nullptr; entry = entry->next_) {
                if (entry->inChild_.call != nullptr) {
                    entry->inChild_.call(entry->inChild_.object);
                }
            }
        }
    }

    const std::size_t order_;
    pthread_mutex_t* mutex_;
    const bool isRecursive_;
    const InChild inChild_;
    ForkLock* previous_ = nullptr;
    ForkLock* next_ = nullptr;
    bool isTaken_ = false;
    bool isOwn_ = false;  ///< the forking thread held it before
    unsigned depth_ = 0;  ///< how often, where it is recursive

    static inline constinit std::array<ForkLock*, static_cast<std::size_t>(ForkOrder::kCount)>
        heads_{};
    static inline constinit std::mutex list_;
    static inline constinit std::mutex turn_;
    static inline constinit std::atomic<const Pause*> pause_{nullptr};
    static inline constinit bool isPaused_ = false;
    /// Says nothing of other memory, so relaxed order does.
    static inline constinit std::atomic<bool> isForkWaiting_{false};
};

}  // namespace tqcommon
