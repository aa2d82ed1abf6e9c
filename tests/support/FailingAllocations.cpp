#include "FailingAllocations.h"

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tqtest {

thread_local int allocationsLeft = -1;
thread_local bool hasAllocationFailed = false;

}  // namespace tqtest

namespace {

void* allocateOrNull(std::size_t size) noexcept {
    if (tqtest::allocationsLeft == 0) {
        tqtest::hasAllocationFailed = true;
        return nullptr;
    }
    if (tqtest::allocationsLeft > 0) {
        --tqtest::allocationsLeft;
    }
    return std::malloc(size == 0 ? 1 : size);
}

void* allocate(std::size_t size) {
    if (void* const memory = allocateOrNull(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void release(void* memory) noexcept {
    // So that nobody can go on using it unseen.
    if (memory != nullptr) {
        std::memset(memory, 0xDD, malloc_usable_size(memory));
    }
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
