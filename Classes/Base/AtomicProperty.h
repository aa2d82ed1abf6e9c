#pragma once

#include <spin_lock.h>

#include <mutex>
#include <utility>

/// A property that control threads set and render threads read, copied whole under a lock that
/// is held for one copy only. For values too large for a machine word.
template <class T>
class AtomicProperty {
  public:
    AtomicProperty() = default;
    explicit AtomicProperty(T value) : value_(std::move(value)) {}

    [[nodiscard]] T load() const {
        const std::scoped_lock guard(lock_);
        return value_;
    }
    /// The old value ends with the parameter, after the lock: no reader waits for a destructor.
    void store(T value) {
        const std::scoped_lock guard(lock_);
        using std::swap;
        swap(value_, value);
    }
    /// Looks at the value in place, for readers that need no reference of their own. `look` must
    /// be short and must not come back to this property.
    template <class Look>
    auto with(Look&& look) const {
        const std::scoped_lock guard(lock_);
        return look(value_);
    }

  private:
    mutable korva_audio_utils::SpinLock lock_;
    T value_{};
};
