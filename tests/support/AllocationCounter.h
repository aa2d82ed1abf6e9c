#pragma once

#include <cstddef>

/// Counts what the calling thread allocates, from C and from C++ and in every library of the
/// process, while one of these lives. Two of them on one thread do not nest.
///
/// Link AllocationCounter.cpp into the test program itself: it stands in for the C library's
/// allocation functions, or, in sanitized programs, listens to the sanitizer's.
class AllocationCounter {
  public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    /// Allocations so far.
    [[nodiscard]] std::size_t count() const;
    /// False where allocations cannot be seen: tests then skip, saying so.
    [[nodiscard]] static bool works();
    /// False where memory with an alignment is not counted: the thread sanitizer does not tell of
    /// it.
    [[nodiscard]] static bool seesAligned();
};
