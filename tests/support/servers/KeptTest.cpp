#include "support/servers/Kept.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "support/TemporaryFolder.h"

namespace tqtest {
namespace {

ProgramSetup shell(const std::string& script) {
    return {.arguments = {"sh", "-c", script}};
}

/// The number in a file that a script writes.
pid_t numberIn(const std::string& file) {
    const std::string text = contentOf(file);
    return text.ends_with('\n') ? std::stoi(text) : 0;
}

class KeptTest : public testing::Test {
  protected:
    /// A process that left its parent's session and does not listen to SIGTERM.
    [[nodiscard]] std::string daemon() const {
        return "setsid sh -c 'trap \"\" TERM; echo $$ >" + folder_.file("daemon") +
               "; while :; do sleep 600; done' & ";
    }
    [[nodiscard]] pid_t daemonNumber() const {
        EXPECT_TRUE(eventually([&] { return numberIn(folder_.file("daemon")) > 0; }));
        return numberIn(folder_.file("daemon"));
    }

    const TemporaryFolder folder_;
};

TEST_F(KeptTest, ADaemonEndsWithTheServerThatStartedIt) {
    Kept server(shell(daemon() + "wait"), {});
    const pid_t process = daemonNumber();
    EXPECT_TRUE(isAlive(process));
    server.stop();
    EXPECT_FALSE(isAlive(process));
}

TEST_F(KeptTest, ADaemonEndsWithTheProgramThatLeftIt) {
    Kept program(shell(daemon() + "while [ ! -s " + folder_.file("daemon") +
                       " ]; do sleep 0.01; done; exit 7"),
                 {});
    EXPECT_EQ(program.wait().code, 7);
    EXPECT_FALSE(isAlive(daemonNumber()));
}

TEST_F(KeptTest, AServerMayTidyUpBeforeItEnds) {
    const std::string file = folder_.file("tidied");
    Kept server(shell("trap 'touch " + file + "; exit 0' TERM; echo ready; sleep 600 & wait"), {});
    ASSERT_TRUE(eventually([&] { return server.text() == "ready\n"; }));
    server.stop();
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(KeptTest, AllOfItAndItsFolderGoWhenTheTestIsKilled) {
    const std::string mine = folder_.file("mine");
    std::filesystem::create_directory(mine);
    const ProgramSetup server = kept(shell(daemon() + "wait"), mine);
    std::string line;
    for (const std::string& word : server.arguments) {
        line += " \"" + word + "\"";
    }
    // Stands for the test: a shell that has started the keeper and is killed.
    ProgramSetup test = shell("\"$@\" & wait");
    test.arguments.push_back("sh");
    test.arguments.insert(test.arguments.end(), server.arguments.begin(), server.arguments.end());
    Program dying(test);
    const pid_t process = daemonNumber();
    EXPECT_TRUE(isAlive(process));
    dying.signal(SIGKILL);
    (void)dying.wait();
    EXPECT_TRUE(eventually([&] { return !isAlive(process) && !std::filesystem::exists(mine); }));
}

TEST_F(KeptTest, HearsNothingOfTheDesktopThatTheTestRunsOn) {
    setenv("DISPLAY", ":99", 1);
    setenv("PULSE_SERVER", "unix:/elsewhere", 1);
    ProgramSetup setup = shell("echo \"$DISPLAY|$PULSE_SERVER\"");
    setup.environment = {{"PULSE_SERVER", "unix:/here"}};
    EXPECT_EQ(Kept(setup, {}).wait().output, "|unix:/here\n");
}

TEST_F(KeptTest, AMissingToolIsNamedWithItsPackage) {
    try {
        needTool("no-such-player", "players");
        FAIL() << "nothing was said";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(),
                    testing::HasSubstr("no-such-player is missing: install the package players"));
    }
}

TEST_F(KeptTest, AServerThatEndsAtOnceIsToldWithItsWords) {
    const Kept server(shell("echo no such device >&2; exit 1"), {});
    try {
        awaitReady(server, "the server", [] { return false; });
        FAIL() << "nothing was said";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the server did not get ready: no such device\n");
    }
}

}  // namespace
}  // namespace tqtest
