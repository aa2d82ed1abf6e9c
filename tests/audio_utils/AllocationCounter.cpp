#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> g_allocations{0};

void* CountedAllocate(std::size_t size, std::size_t alignment) {
    ++g_allocations;
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* CountedOrThrow(std::size_t size, std::size_t alignment) {
    void* const memory = CountedAllocate(size == 0 ? 1 : size, alignment);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

long AllocationCount() {
    return g_allocations;
}

void* operator new(std::size_t size) {
    return CountedOrThrow(size, alignof(std::max_align_t));
}
void* operator new[](std::size_t size) {
    return CountedOrThrow(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return CountedOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return CountedOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return CountedAllocate(size == 0 ? 1 : size, alignof(std::max_align_t));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return CountedAllocate(size == 0 ? 1 : size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
