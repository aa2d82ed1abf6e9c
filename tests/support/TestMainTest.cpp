#include <gtest/gtest.h>

#include "support/ProgramRunner.h"

// Test programs that are run whole, without ctest.

namespace {

using testing::HasSubstr;

tqtest::ProgramEnd runCases(const std::string& filter) {
    return tqtest::runProgram({.arguments = {TQ_TEST_MAIN_CASES, "--gtest_filter=" + filter}});
}

TEST(TestMain, GivesEachCaseAProcessOfItsOwn) {
    const tqtest::ProgramEnd run = runCases("Alone.*");
    EXPECT_EQ(run.code, 0) << run.text();
    EXPECT_THAT(run.output, HasSubstr("[       OK ] Alone.First\n"));
    EXPECT_THAT(run.output, HasSubstr("2 of 2 passed"));
}

TEST(TestMain, GoesOnBehindACaseThatFailsOrDies) {
    const tqtest::ProgramEnd run = runCases("Bad.*:Alone.First");
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.output, HasSubstr("what went wrong"));
    EXPECT_THAT(run.output, HasSubstr("ended by signal 9\n[  FAILED  ] Bad.Dies\n"));
    EXPECT_THAT(run.output, HasSubstr("1 of 3 passed"));
}

TEST(TestMain, RunsASingleCaseItself) {
    EXPECT_EQ(runCases("*Dies").signal, SIGKILL);
}

}  // namespace
