#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace bench {

/// Memory that starts where a cache line does, for every variant alike: where blocks happen to
/// start would otherwise outweigh what is compared.
template <class T>
struct LineAllocator {
    using value_type = T;
    static constexpr std::align_val_t kLine{64};

    LineAllocator() = default;
    template <class U>
    explicit LineAllocator(const LineAllocator<U>& /*other*/) {}
    T* allocate(std::size_t count) {
        return static_cast<T*>(::operator new(count * sizeof(T), kLine));
    }
    void deallocate(T* memory, std::size_t /*count*/) { ::operator delete(memory, kLine); }
    bool operator==(const LineAllocator& /*other*/) const { return true; }
};

template <class T>
using Vector = std::vector<T, LineAllocator<T>>;

}  // namespace bench
