#include "common/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace tqcommon {
namespace {

bool isOpen(int number) {
    return fcntl(number, F_GETFD) >= 0;
}

/// Bounds the numbers that descriptors can have.
class NumberLimit {
  public:
    explicit NumberLimit(rlim_t numbers) {
        getrlimit(RLIMIT_NOFILE, &old_);
        const rlimit limit{numbers, old_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~NumberLimit() { setrlimit(RLIMIT_NOFILE, &old_); }
    NumberLimit(const NumberLimit&) = delete;
    NumberLimit& operator=(const NumberLimit&) = delete;

  private:
    rlimit old_{};
};

class OutOfTheWay : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(close(STDIN_FILENO), 0); }
    static int openNull() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }
};

TEST_F(OutOfTheWay, ADescriptorGetsAHighNumberAndIsStillClosedByExec) {
    const int low = openNull();
    ASSERT_EQ(low, 0);
    const Descriptor moved(outOfTheWay(low));
    EXPECT_GE(moved.get(), 64);
    EXPECT_FALSE(isOpen(low));
    EXPECT_EQ(fcntl(moved.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(OutOfTheWay, WhereHighNumbersAreNotAllowedItIsNoStandardStreamStill) {
    const NumberLimit limit(64);
    const Descriptor moved(outOfTheWay(openNull()));
    EXPECT_GT(moved.get(), STDERR_FILENO);
    EXPECT_FALSE(isOpen(STDIN_FILENO));
}

TEST_F(OutOfTheWay, WhereItCannotBeMovedAnOrdinaryNumberIsKept) {
    const Descriptor low(openNull());
    const int ordinary = openNull();
    ASSERT_GT(ordinary, STDERR_FILENO);
    const NumberLimit limit(3);
    EXPECT_EQ(outOfTheWay(ordinary), ordinary);
    EXPECT_TRUE(isOpen(ordinary));
    close(ordinary);
}

TEST_F(OutOfTheWay, WhereItCannotBeMovedTheNumberOfAStandardStreamIsGivenUp) {
    const int low = openNull();
    ASSERT_EQ(low, 0);
    const NumberLimit limit(3);
    EXPECT_EQ(outOfTheWay(low), -1);
    EXPECT_FALSE(isOpen(low));
}

TEST_F(OutOfTheWay, WhatIsNoneStaysNone) {
    EXPECT_EQ(outOfTheWay(-1), -1);
}

}  // namespace
}  // namespace tqcommon
