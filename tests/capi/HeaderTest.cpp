#include <gtest/gtest.h>

extern "C" {
int checkHeaderC99(void);
int checkHeaderC17(void);
}

TEST(Header, WorksInTheCOf1999) {
    EXPECT_EQ(checkHeaderC99(), 0);
}

TEST(Header, WorksInTheCOf2017) {
    EXPECT_EQ(checkHeaderC17(), 0);
}
