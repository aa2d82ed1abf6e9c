#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "NSObjCRuntime.h"

/// A list of weak references: an entry whose object is gone reads as null. [any thread, one at a
/// time]
template <class T>
class NSPointerArray {
  public:
    [[nodiscard]] std::size_t count() const { return entries_.size(); }
    /// The object at `index`, null when it is gone or the index is beyond the end.
    [[nodiscard]] std::shared_ptr<T> pointerAtIndex(std::size_t index) const {
        return index < entries_.size() ? entries_[index].lock() : nullptr;
    }
    void addPointer(const std::shared_ptr<T>& object) { entries_.push_back(object); }
    void removePointerAtIndex(std::size_t index) {
        if (index < entries_.size()) {
            entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

  private:
    std::vector<std::weak_ptr<T>> entries_;
};
