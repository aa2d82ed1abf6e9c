#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace tqcommon {

/// Holds one object whose destructor never runs: what threads may still use while the process
/// exits. Meant for function-local statics.
template <class T>
class NeverDestroyed {
  public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments)
        : object_(::new (storage_) T(std::forward<Arguments>(arguments)...)) {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    [[nodiscard]] T& operator*() noexcept { return *object_; }
    [[nodiscard]] T* operator->() noexcept { return object_; }

  private:
    alignas(T) std::byte storage_[sizeof(T)];
    T* object_;
};

}  // namespace tqcommon
