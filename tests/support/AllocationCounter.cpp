#include "AllocationCounter.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TQ_TEST_HAS_SANITIZER_ALLOCATOR 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TQ_TEST_HAS_SANITIZER_ALLOCATOR 1
#endif
#endif

namespace {

// volatile: compilers know malloc() and take it to change no variable of the program.
thread_local volatile bool isCounting = false;
thread_local volatile std::size_t allocations = 0;

void note() noexcept {
    if (isCounting) {
        allocations = allocations + 1;
    }
}

}  // namespace

AllocationCounter::AllocationCounter() {
    allocations = 0;
    isCounting = true;
}

AllocationCounter::~AllocationCounter() {
    isCounting = false;
}

std::size_t AllocationCounter::count() const {
    return allocations;
}

bool AllocationCounter::works() {
    const AllocationCounter counter;
    // volatile: what is never used must be allocated all the same.
    int* volatile const cpp = new int;
    void* volatile const c = std::malloc(1);
    delete cpp;
    std::free(c);
    return counter.count() == 2;
}

bool AllocationCounter::seesAligned() {
    const AllocationCounter counter;
    void* volatile const aligned = std::aligned_alloc(64, 64);
    std::free(aligned);
    return counter.count() == 1;
}

#ifdef TQ_TEST_HAS_SANITIZER_ALLOCATOR

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*,
                                                                  std::size_t),
                                                         void (*)(const volatile void*));
namespace {

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { note(); }, [](const volatile void*) {});

}  // namespace

#else

// Visible on purpose: the program's definitions come before the C library's for every library of
// the process, and operator new ends here as well.
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
