// tqplatform-devices as its user meets it.

#include <gtest/gtest.h>

#include "DeviceRun.h"
#include "support/servers/PulseServer.h"

namespace {

using namespace tqtest;

TEST(DevicesTool, ListsWhatTheServerHasAndPlaysATone) {
    const PulseServer server;
    const auto recording = server.record();
    Environment environment = server.environment();
    environment["TQ_AUDIO_DEVICE"] = "auto";
    const ProgramEnd end =
        runProgram(kept({.arguments = {TQ_DEVICES_TOOL, "--tone"}, .environment = environment},
                        server.folder().path()));
    EXPECT_EQ(end.code, 0) << end.text();
    EXPECT_NE(end.output.find("* speakers   pulse: cap ("), std::string::npos) << end.output;
    EXPECT_NE(end.output.find("  microphone pulse: cap.monitor ("), std::string::npos)
        << "what speakers play is nobody's microphone: " << end.output;
    const Sound heard = recording->finish().trimmed();
    EXPECT_NEAR(static_cast<double>(heard.frames()), 96000, 100);
    EXPECT_NEAR(frequencyOf(heard.part(5000, 80000)), 440, 0.5);
}

TEST(DevicesTool, SaysWhenNothingAnswers) {
    const TemporaryFolder folder;
    const ProgramEnd end =
        runProgram({.arguments = {TQ_DEVICES_TOOL}, .environment = withoutServers(folder)});
    EXPECT_EQ(end.code, 2);
    EXPECT_EQ(end.errors,
              "tqplatform-devices: no sound server or card answers; programs play on the null "
              "device\n");
}

TEST(DevicesTool, SaysWhenProgramsPlayOnAClock) {
    const PulseServer server;
    Environment environment = server.environment();
    environment["TQ_AUDIO_DEVICE"] = "null";
    const std::string line =
        "tqplatform-devices: TQ_AUDIO_DEVICE=null chooses a clock that nobody hears; programs play "
        "on none of these\n";
    const ProgramEnd listed =
        runProgram({.arguments = {TQ_DEVICES_TOOL}, .environment = environment});
    EXPECT_EQ(listed.code, 0);
    EXPECT_NE(listed.output.find("pulse: cap ("), std::string::npos) << listed.output;
    EXPECT_EQ(listed.errors, line);
    const ProgramEnd played =
        runProgram({.arguments = {TQ_DEVICES_TOOL, "--tone"}, .environment = environment});
    EXPECT_EQ(played.code, 2);
    EXPECT_EQ(played.errors, line);
}

TEST(DevicesTool, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(runProgram({.arguments = {TQ_DEVICES_TOOL, "--loud"}}).code, 1);
}

}  // namespace
