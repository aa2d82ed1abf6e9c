#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "common/ForkLocks.h"

namespace tqcapi {

/// [any thread] A number that no handle of any kind has had: one of another kind is refused, not
/// mistaken. A multiple of 16, like an address of something, so that tools that look at pointers
/// are not surprised.
inline std::uintptr_t newHandleNumber() noexcept {
    static std::atomic<std::uintptr_t> last{0};
    constexpr std::uintptr_t kStep = 16;
    return last.fetch_add(kStep, std::memory_order_relaxed) + kStep;
}

/// Objects under numbers in the shape of pointers to `Opaque`, which never come back.
/// [any thread] for every method.
template <class Opaque, class Object>
class HandleTable {
  public:
    /// Never destroyed: handles may be used while the process ends.
    static HandleTable& shared() {
        static auto* const instance = new HandleTable;
        return *instance;
    }

    [[nodiscard]] Opaque* add(std::shared_ptr<Object> object) {
        const std::scoped_lock guard(lock_);
        const std::uintptr_t number = newHandleNumber();
        objects_.emplace(number, std::move(object));
        return reinterpret_cast<Opaque*>(number);
    }
    /// Null for an unknown handle.
    [[nodiscard]] std::shared_ptr<Object> find(const Opaque* handle) const {
        const std::scoped_lock guard(lock_);
        const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
        return found == objects_.end() ? nullptr : found->second;
    }
    /// The same, and the handle ends.
    [[nodiscard]] std::shared_ptr<Object> take(const Opaque* handle) {
        const std::scoped_lock guard(lock_);
        const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
        if (found == objects_.end()) {
            return nullptr;
        }
        std::shared_ptr<Object> object = std::move(found->second);
        objects_.erase(found);
        return object;
    }

  private:
    HandleTable() = default;

    mutable std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Handles, lock_};
    std::map<std::uintptr_t, std::shared_ptr<Object>> objects_;
};

}  // namespace tqcapi
