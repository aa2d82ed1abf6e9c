// A program that asks what there is must not wait for a server that stands still.

#include <gtest/gtest.h>

#include "support/ProgramRunner.h"
#include "support/servers/PulseServer.h"

namespace {

using namespace tqtest;

TEST(ListDevices, AServerThatStandsStillIsNone) {
    const PulseServer server;
    Environment environment = server.environment();
    environment["TQ_AUDIO_DEVICE"] = "cubeb:pulse";
    const ProgramSetup tool{.arguments = {TQ_DEVICES_TOOL}, .environment = environment};
    const ProgramEnd before = runProgram(tool);
    EXPECT_EQ(before.code, 0) << before.text();
    server.freeze();
    const ProgramEnd frozen = runProgram(tool);
    EXPECT_FALSE(frozen.isTimedOut);
    EXPECT_GT(frozen.code, 0) << frozen.text();
    EXPECT_EQ(frozen.output, "");
    server.thaw();
}

}  // namespace
