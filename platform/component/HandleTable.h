#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "common/ForkLocks.h"

namespace tqplatform {

/// The life of one handle: a generation that makes old handles recognisable, and a count of the
/// calls that are inside the object. The slot itself is never freed.
class HandleSlot {
  public:
    /// [any thread] [real-time safe] Enters the object when the handle is of this generation and
    /// not closing.
    [[nodiscard]] bool tryEnter(std::uint32_t generation) noexcept;
    /// [any thread] [real-time safe] True when this was the last call inside an object that its
    /// owner has left to be destroyed: the caller destroys it.
    [[nodiscard]] bool leave() noexcept;

    /// Makes the handle stale: no call enters any more. False when it was stale already.
    [[nodiscard]] bool close(std::uint32_t generation) noexcept;
    /// Waits until no call is inside.
    void waitUntilEmpty() const noexcept;
    /// Leaves the closed object to the last call inside it. True when there is none: the caller
    /// destroys it.
    [[nodiscard]] bool abandon() noexcept;
    /// The generation of the next object; only for a closed slot that no thread is inside.
    [[nodiscard]] std::uint32_t nextGeneration() const noexcept;
    /// Lets calls enter an object of that generation.
    void open(std::uint32_t generation) noexcept;
    /// Only in the child of a fork: of the calls inside, `own` remain.
    void keepOnly(std::uint64_t own) noexcept {
        state_.store((state_.load(std::memory_order_relaxed) & ~kCountMask) | own,
                     std::memory_order_relaxed);
    }

  private:
    static constexpr std::uint64_t kClosing = 1ULL << 31;
    static constexpr std::uint64_t kAbandoned = 1ULL << 30;
    static constexpr std::uint64_t kCountMask = kAbandoned - 1;
    static constexpr unsigned kGenerationShift = 32;

    /// Generation above, flags and count below. A fresh slot is closed.
    std::atomic<std::uint64_t> state_{kClosing};
};

/// Notes on a thread's stack which objects it is inside, innermost first.
class HandleVisit {
  public:
    /// [any thread] [real-time safe] Whether the calling thread is inside the object of that slot.
    [[nodiscard]] static bool isInside(const HandleSlot& slot) noexcept { return depth(slot) != 0; }
    /// [any thread] [real-time safe] How often it is.
    [[nodiscard]] static std::uint64_t depth(const HandleSlot& slot) noexcept;

  protected:
    HandleVisit() = default;
    ~HandleVisit() = default;
    void note(HandleSlot& slot) noexcept;
    void forget() noexcept;
    [[nodiscard]] HandleSlot* slot() const noexcept { return slot_; }

  private:
    HandleSlot* slot_ = nullptr;
    HandleVisit* outer_ = nullptr;
};

/// Address space that cannot be read or written: handles are addresses in it, so they are unlike
/// every real pointer, and dereferencing one fails at once. An address is given out again only
/// after 65,536 other objects. No more of it than that needs: limits of a program's address
/// space, and of what it may lock into memory, count it.
class HandleRegion {
  public:
    static constexpr std::size_t kSlots = 4096;
    static constexpr std::uint32_t kGenerations = 16;

    struct Place {
        std::size_t slot;
        std::uint32_t generation;
    };

    /// Throws std::bad_alloc when there is no address space left.
    HandleRegion();

    [[nodiscard]] void* address(Place place) const noexcept;
    /// [any thread] [real-time safe] False for anything that was never an address of this region.
    [[nodiscard]] bool find(const void* address, Place& place) const noexcept;

  private:
    static constexpr std::size_t kSpacing = 16;
    char* base_;
};

/// The objects of one kind behind their handles. Never destroyed, like the handles it knows.
template <class T>
class HandleTable {
  public:
    /// A call inside an object. While it lives the object lives.
    class Access : HandleVisit {
      public:
        /// [any thread] [real-time safe] Empty when the handle is null, foreign or stale.
        Access(HandleTable& table, const void* handle) noexcept : table_(table) {
            HandleRegion::Place place{};
            if (table.region_.find(handle, place) &&
                table.entries_[place.slot].slot.tryEnter(place.generation)) {
                index_ = place.slot;
                object_ = table.entries_[place.slot].object.get();
                note(table.entries_[place.slot].slot);
            }
        }
        ~Access() {
            if (object_ != nullptr) {
                forget();
                if (slot()->leave()) {
                    table_.destroy(index_);
                }
            }
        }
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;
        explicit operator bool() const noexcept { return object_ != nullptr; }
        [[nodiscard]] T* get() const noexcept { return object_; }
        T& operator*() const noexcept { return *object_; }
        T* operator->() const noexcept { return object_; }

      private:
        HandleTable& table_;
        std::size_t index_ = 0;
        T* object_ = nullptr;
    };

    HandleTable() {
        for (std::size_t i = 0; i < HandleRegion::kSlots; ++i) {
            free_[i] = i;
        }
    }

    /// Takes the object over; null when all slots are taken. The object learns its handle through
    /// `T::setHandle()` before another thread can have it.
    [[nodiscard]] void* add(std::unique_ptr<T> object) {
        const std::lock_guard lock(mutex_);
        if (freeCount_ == 0) {
            return nullptr;
        }
        const std::size_t index = free_[freeFirst_];
        freeFirst_ = (freeFirst_ + 1) % HandleRegion::kSlots;
        --freeCount_;
        Entry& entry = entries_[index];
        entry.object = std::move(object);
        const std::uint32_t generation = entry.slot.nextGeneration();
        void* const handle = region_.address({index, generation});
        entry.object->setHandle(handle);
        entry.slot.open(generation);
        return handle;
    }

    /// Closes the handle, lets `T::close()` end what the object does, and destroys the object:
    /// once no thread is inside. A caller that is inside itself, or that must not wait (`mayWait`),
    /// leaves it to the last call inside. False for a stale handle.
    [[nodiscard]] bool remove(const void* handle, bool mayWait) {
        HandleRegion::Place place{};
        if (!region_.find(handle, place)) {
            return false;
        }
        Entry& entry = entries_[place.slot];
        if (!entry.slot.close(place.generation)) {
            return false;
        }
        entry.object->close();
        if (!HandleVisit::isInside(entry.slot) && mayWait) {
            entry.slot.waitUntilEmpty();
            destroy(place.slot);
        } else if (entry.slot.abandon()) {
            destroy(place.slot);
        }
        return true;
    }

  private:
    /// Only in the child of a fork. An object that another thread was about to destroy stays.
    void keepOwnCalls() noexcept {
        for (Entry& entry : entries_) {
            const std::uint64_t own = HandleVisit::depth(entry.slot);
            entry.slot.keepOnly(own);
            if constexpr (requires(T & object) { object.forgetAfterFork(true); }) {
                if (entry.object != nullptr) {
                    entry.object->forgetAfterFork(own != 0);
                }
            }
        }
    }

    struct Entry {
        HandleSlot slot;
        std::unique_ptr<T> object;
    };

    void destroy(std::size_t index) noexcept {
        entries_[index].object.reset();
        const std::lock_guard lock(mutex_);
        free_[(freeFirst_ + freeCount_) % HandleRegion::kSlots] = index;
        ++freeCount_;
    }

    HandleRegion region_;
    std::mutex mutex_;
    std::array<Entry, HandleRegion::kSlots> entries_;
    /// Ring of free slots, the one longest free first.
    std::array<std::size_t, HandleRegion::kSlots> free_;
    std::size_t freeFirst_ = 0;
    std::size_t freeCount_ = HandleRegion::kSlots;
    tqcommon::ForkLock atFork_{
        tqcommon::ForkOrder::HandleTable,
        mutex_,
        {[](void* table) { static_cast<HandleTable*>(table)->keepOwnCalls(); }, this}};
};

}  // namespace tqplatform
