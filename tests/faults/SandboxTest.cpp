#include <gtest/gtest.h>

#include <map>
#include <string>

#include "support/LeakCheck.h"
#include "support/ProgramRunner.h"
#include "support/TemporaryFolder.h"

namespace {

TEST(Sandbox, WhereNoMemoryCanBeMadeWritableTheHooksStayOut) {
    tqtest::startProgramsWithoutLeakCheck();
    const TemporaryFolder caches;
    const std::map<std::string, std::string> environment{{"XDG_CACHE_HOME", caches.path()},
                                                         {"TQ_AUDIO_DEVICE", "manual"}};
    ASSERT_EQ(tqtest::runProgram(
                  {.arguments = {TQ_ARM_TONE, "on"}, .environment = environment})["result"],
              "0");
    tqtest::ProgramSetup setup{.arguments = {TQ_TONE_HOST, "play"}, .environment = environment};
    // What is named last is initialised first.
    setup.environment["LD_PRELOAD"] = std::string(TQ_CAPTURE_LIBRARY) + ":" + TQ_SANDBOX;
    const tqtest::ProgramEnd run = tqtest::runProgram(setup);
    EXPECT_EQ(run.code, 0) << run.text();
    EXPECT_EQ(run["hooks"], "out") << run.text();
    EXPECT_EQ(run["played"], "10") << run.text();
    EXPECT_EQ(run.errors, "") << "the one line is in the system log";
}

}  // namespace
