#include <gtest/gtest.h>

#include <csignal>

// A test program for TestMainTest: two cases that pass only in a process of their own, one that
// fails and one that dies.

namespace {

int casesInThisProcess = 0;

TEST(Alone, First) {
    EXPECT_EQ(++casesInThisProcess, 1);
}

TEST(Alone, Second) {
    EXPECT_EQ(++casesInThisProcess, 1);
}

TEST(Bad, Fails) {
    FAIL() << "what went wrong";
}

TEST(Bad, Dies) {
    std::raise(SIGKILL);
}

}  // namespace
