#include "AllocationCounter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>

namespace {

/// What is never looked at need not be allocated, as some compilers know.
template <class T>
void use(T& value) {
    asm volatile("" : : "r"(&value) : "memory");
}

}  // namespace

// A counter that sees nothing would let every other test of this kind pass.

TEST(AllocationCounterTest, SeesEveryKindOfAllocation) {
    ASSERT_TRUE(AllocationCounter::works());
    const AllocationCounter counter;
    EXPECT_EQ(0U, counter.count());
    const std::string text(1000, 'x');
    use(text);
    EXPECT_EQ(1U, counter.count());
    void* volatile memory = std::calloc(10, 10);
    EXPECT_EQ(2U, counter.count());
    memory = std::realloc(memory, 100000);
    EXPECT_EQ(3U, counter.count());
    std::free(memory);
    const auto shared = std::make_shared<std::string>("short");
    use(shared);
    EXPECT_EQ(4U, counter.count());
}

TEST(AllocationCounterTest, SeesAlignedAllocations) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer does not tell of aligned allocations";
#endif
    EXPECT_TRUE(AllocationCounter::seesAligned());
    const AllocationCounter counter;
    void* volatile const c = std::aligned_alloc(64, 640);
    EXPECT_EQ(1U, counter.count());
    std::free(c);
    void* volatile const cpp = ::operator new (640, std::align_val_t{64});
    EXPECT_EQ(2U, counter.count());
    ::operator delete (cpp, std::align_val_t{64});
}

TEST(AllocationCounterTest, CountsItsOwnThreadOnly) {
    std::size_t inThread = 0;
    const AllocationCounter* outer = nullptr;
    std::thread thread;
    {
        thread = std::thread([&] {
            const AllocationCounter counter;
            const std::string text(1000, 'x');
            use(text);
            inThread = counter.count();
        });
        thread.join();
        const AllocationCounter counter;
        outer = &counter;
        EXPECT_EQ(0U, outer->count());
    }
    EXPECT_EQ(1U, inThread);
}

TEST(AllocationCounterTest, CountsNothingBeyondItsScope) {
    { const AllocationCounter counter; }
    const std::string text(1000, 'x');
    use(text);
    const AllocationCounter counter;
    EXPECT_EQ(0U, counter.count());
}
