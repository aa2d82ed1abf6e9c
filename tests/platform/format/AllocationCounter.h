#pragma once

#include <cstddef>

/// Counts what the calling thread allocates, from C and from C++, while one of these lives. They
/// do not nest.
class AllocationCounter {
  public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;
    [[nodiscard]] std::size_t count() const;

    /// False in builds where memory with an alignment is not counted.
    static const bool kSeesAligned;
};
