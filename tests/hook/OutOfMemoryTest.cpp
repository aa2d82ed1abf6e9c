// Memory that runs out in the middle of a request: what was redirected before stays as it was.
#include <gtest/gtest.h>

#include "hook/rebind/Rebinder.h"
#include "hook/tq_hook.h"
#include "support/FailingAllocations.h"

extern "C" {
#include "hosts/target.h"
}

namespace {

using tqtest::allocationsLeft;
using tqtest::hasAllocationFailed;

int (*savedAdd)(int, int) = nullptr;
int (*savedPick)() = nullptr;

int add(int a, int b) {
    return savedAdd(a, b) + 1000;
}
int pick() {
    return savedPick() + 1000;
}

/// Runs `call` with the nth allocation failing, n from 0 up, until it needs no more of them, and
/// `check` after each with memory enough. Answers how often it failed.
template <class Call, class Check>
int starve(const Call& call, const Check& check) {
    for (int failures = 0; failures < 2000; ++failures) {
        hasAllocationFailed = false;
        allocationsLeft = failures;
        const int result = call();
        allocationsLeft = -1;
        EXPECT_EQ(result, hasAllocationFailed ? -1 : 0);
        check();
        if (!hasAllocationFailed) {
            return failures;
        }
    }
    ADD_FAILURE() << "the call never succeeded";
    return 0;
}

void checkAdd() {
    EXPECT_TRUE(tqhook::Rebinder::shared().isRedirected("t_add"));
    EXPECT_EQ(t_add(1, 2), 1003);
}

class HookOutOfMemory : public testing::Test {
  protected:
    void SetUp() override {
        const tqhook_rebinding record{"t_add", reinterpret_cast<void*>(&add),
                                      reinterpret_cast<void**>(&savedAdd)};
        ASSERT_EQ(tqhook_rebind(&record, 1, nullptr), 0);
        checkAdd();
    }
};

TEST_F(HookOutOfMemory, AnotherRequestLeavesTheFirstAsItWas) {
    const tqhook_rebinding record{"t_pick", reinterpret_cast<void*>(&pick),
                                  reinterpret_cast<void**>(&savedPick)};
    EXPECT_GT(starve([&] { return tqhook_rebind(&record, 1, nullptr); }, checkAdd), 10);
    EXPECT_EQ(t_pick(), savedPick() + 1000);
}

TEST_F(HookOutOfMemory, AnExemptionLeavesTheRequestsAsTheyWere) {
    EXPECT_GT(starve([] { return tqhook_exempt_images("libnothing_of_that_name_*.so"); }, checkAdd),
              5);
}

}  // namespace
