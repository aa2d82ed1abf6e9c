#include "TQHookConfigResult.h"

#include <gtest/gtest.h>

TEST(TQHookConfigResultTest, EveryInternalResultHasItsPublicCode) {
    EXPECT_EQ(0, publicHookConfigResult(0));
    EXPECT_EQ(20, publicHookConfigResult(1));
    EXPECT_EQ(21, publicHookConfigResult(2));
    EXPECT_EQ(1, publicHookConfigResult(3));
    EXPECT_EQ(22, publicHookConfigResult(4));
}

TEST(TQHookConfigResultTest, AnythingElseIsAnUnknownFailure) {
    for (const int internal : {-1, 5, 10, 20, 1000}) {
        EXPECT_EQ(10, publicHookConfigResult(internal));
    }
}
