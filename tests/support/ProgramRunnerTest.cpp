#include "support/ProgramRunner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>

// The runner itself, with the system's own programs.

namespace tqtest {
namespace {

ProgramSetup shell(const std::string& script) {
    return {.arguments = {"sh", "-c", script}};
}

TEST(ProgramRunnerTest, TellsTheExitCodeAndKeepsBothStreamsApart) {
    const ProgramEnd end = runProgram(shell("echo out; echo err >&2; exit 3"));
    EXPECT_EQ(end.code, 3);
    EXPECT_EQ(end.signal, 0);
    EXPECT_EQ(end.output, "out\n");
    EXPECT_EQ(end.errors, "err\n");
    EXPECT_EQ(end.text(), "out\nerr\n");
}

TEST(ProgramRunnerTest, TellsTheSignalThatEndedIt) {
    const ProgramEnd end = runProgram(shell("kill -USR1 $$"));
    EXPECT_EQ(end.code, -1);
    EXPECT_EQ(end.signal, SIGUSR1);
    EXPECT_FALSE(end.isTimedOut);
}

TEST(ProgramRunnerTest, AProgramThatIsNotThereEndsWith127) {
    EXPECT_EQ(runProgram({.arguments = {"/no/such/program"}}).code, 127);
}

TEST(ProgramRunnerTest, KillsWhatDoesNotEndInTime) {
    const ProgramEnd end = runProgram({.arguments = {"sleep", "600"}}, std::chrono::seconds{0});
    EXPECT_TRUE(end.isTimedOut);
    EXPECT_EQ(end.signal, SIGKILL);
}

TEST(ProgramRunnerTest, AddsItsVariablesToTheTestsOwn) {
    setenv("TQ_TEST_OWN", "inherited", 1);
    setenv("TQ_TEST_CHANGED", "before", 1);
    ProgramSetup setup = shell("echo $TQ_TEST_OWN $TQ_TEST_CHANGED $TQ_TEST_NEW");
    setup.environment = {{"TQ_TEST_CHANGED", "after"}, {"TQ_TEST_NEW", "new"}};
    EXPECT_EQ(runProgram(setup).output, "inherited after new\n");
}

TEST(ProgramRunnerTest, TakesAnyAmountOfOutput) {
    EXPECT_EQ(runProgram({.arguments = {"head", "-c", "1000000", "/dev/zero"}}).output.size(),
              1'000'000U);
}

TEST(ProgramRunnerTest, GivesTheValuesOfItsLines) {
    const ProgramEnd end = runProgram(shell("echo ab=1; echo a=2; echo c=; echo d"));
    EXPECT_EQ(end["a"], "2");
    EXPECT_EQ(end["ab"], "1");
    EXPECT_EQ(end["c"], "");
    EXPECT_EQ(end["d"], "(not said)");
}

TEST(ProgramRunnerTest, WritesToADescriptorThatIsGiven) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ProgramSetup setup = shell("printf x; printf y >&2");
    setup.output = ends[1];
    const ProgramEnd end = runProgram(setup);
    close(ends[1]);
    char got = 0;
    EXPECT_EQ(read(ends[0], &got, 1), 1);
    EXPECT_EQ(got, 'x');
    close(ends[0]);
    EXPECT_EQ(end.output, "");
    EXPECT_EQ(end.errors, "y");
}

TEST(ProgramRunnerTest, ARunningProgramCanBeWatchedAndSignalled) {
    Program program(shell("trap 'echo got it; exit 5' INT; echo ready; sleep 600 & wait"));
    ASSERT_TRUE(eventually([&] { return program.output() == "ready\n"; }));
    ASSERT_TRUE(eventually([&] { return program.children().size() == 1; }));
    const pid_t child = program.children()[0];
    EXPECT_TRUE(isAlive(child));
    program.signal(SIGINT);
    const ProgramEnd end = program.wait();
    EXPECT_EQ(end.code, 5);
    EXPECT_EQ(end.output, "ready\ngot it\n");
    kill(child, SIGKILL);
    EXPECT_TRUE(eventually([&] { return !isAlive(child); }));
}

TEST(ProgramRunnerTest, IsKilledWithItsObject) {
    pid_t process = 0;
    {
        const Program program({.arguments = {"sleep", "600"}});
        process = program.pid();
        EXPECT_TRUE(isAlive(process));
    }
    EXPECT_FALSE(isAlive(process));
}

TEST(ProgramRunnerTest, AKeyOfItsTerminalReachesAProgramAsASignal) {
    Terminal terminal(24, 80);
    ProgramSetup setup = shell("trap 'exit 6' INT; echo ready; while :; do sleep 0.01; done");
    setup.terminal = &terminal;
    Program program(setup);
    ASSERT_TRUE(eventually([&] { return program.output() == "ready\n"; }));
    ASSERT_TRUE(terminal.type("\x03"));
    EXPECT_EQ(program.wait().code, 6);
}

TEST(ProgramRunnerTest, ATerminalKeepsWhatIsWrittenToIt) {
    Terminal terminal(30, 100);
    ProgramSetup setup = shell("[ -t 2 ] && stty size <&2 >&2");
    setup.errors = terminal.programEnd();
    Program program(setup);
    EXPECT_EQ(terminal.readToEnd(), "30 100\r\n");
    EXPECT_EQ(program.wait().code, 0);
}

}  // namespace
}  // namespace tqtest
