#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace tqcapi {

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
        const std::uintptr_t number = last_ + kStep;
        objects_.emplace(number, std::move(object));
        last_ = number;
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

    /// Like an address of something, so that tools that look at pointers are not surprised.
    static constexpr std::uintptr_t kStep = 16;

    mutable std::mutex lock_;
    std::map<std::uintptr_t, std::shared_ptr<Object>> objects_;
    std::uintptr_t last_ = 0;
};

}  // namespace tqcapi
