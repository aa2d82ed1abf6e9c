#include "AllocationCounter.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#endif
#if __has_feature(thread_sanitizer)
#define __SANITIZE_THREAD__ 1
#endif
#endif

namespace {

thread_local bool counting = false;
thread_local std::size_t allocations = 0;

void note() noexcept {
    if (counting) {
        ++allocations;
    }
}

}  // namespace

AllocationCounter::AllocationCounter() {
    allocations = 0;
    counting = true;
}

AllocationCounter::~AllocationCounter() {
    counting = false;
}

std::size_t AllocationCounter::count() const {
    return allocations;
}

#ifdef __SANITIZE_THREAD__
const bool AllocationCounter::kSeesAligned = false;
#else
const bool AllocationCounter::kSeesAligned = true;
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// A sanitizer has an allocator of its own and tells of every call to it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*,
                                                                  std::size_t),
                                                         void (*)(const volatile void*));
namespace {

const int hooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { note(); }, [](const volatile void*) {});

}  // namespace

#else

// The program's definitions come before the C library's for every library in the process;
// operator new ends here as well. They have to be visible for that.
#pragma GCC visibility push(default)
extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

void* malloc(std::size_t size) {
    note();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    note();
    return __libc_calloc(count, size);
}

void* realloc(void* old, std::size_t size) {
    note();
    return __libc_realloc(old, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    note();
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    note();
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
    note();
    void* const memory = __libc_memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *out = memory;
    return 0;
}

}  // extern "C"
#pragma GCC visibility pop

#endif
