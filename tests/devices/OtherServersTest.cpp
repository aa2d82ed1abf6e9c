// JACK, ALSA and PipeWire, each as far as it can be had without hardware.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>

#include "DeviceRun.h"
#include "support/servers/FileOutputs.h"
#include "support/servers/JackServer.h"
#include "support/servers/PipeWireServer.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;

TEST(PlayingOnJack, EveryFrameArrives) {
    const JackServer server;
    const auto recording = server.record();
    // The recorder connects itself to a stream that is there: the noise comes when it has, and when
    // the tone is over.
    Program player(devicePlayer(server.environment(), "cubeb:jack",
                                {"start2", "await:" + server.folder().file("go"), "start", "end",
                                 "sleep:0.5", "stop", "stop2"}));
    ASSERT_TRUE(eventually([&] {
        const Sound heard = recording->soFar();
        return heard.silenceAtStart() < heard.frames() && heard.silenceAtEnd() > 24000;
    }));
    std::ofstream(server.folder().file("go")) << "go";
    EXPECT_EQ(player.wait()["done"], "1");
    const Sound heard = alignedTo(devicePlayerNoise(), recording->finish());
    EXPECT_EQ(differences(devicePlayerNoise(), heard), std::vector<std::string>{});
}

TEST(PlayingOnJack, ItsMicrophoneIsOpenWhileSomebodyListens) {
    const JackServer server;
    const ProgramEnd end = runProgram(devicePlayer(
        server.environment(), "cubeb:jack", {"listen", "sleep:4.5", "say", "heard:/dev/null"}));
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["inputChannels"], "2");
    EXPECT_EQ(end["hearing"], "1");
}

TEST(PlayingOnJack, ItsLatencyIsTheServersWhateverIsPreferred) {
    const JackServer server;
    const ProgramEnd end = runProgram(devicePlayer(
        server.environment(), "cubeb:jack", {"duration:0.02", "start2", "sleep:0.5", "say"}));
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_NEAR(std::stod(end["slice"]), 4096 / 48000.0, 0.001) << "its period";
    EXPECT_NEAR(std::stod(end["outputLatency"]), 2 * 4096 / 48000.0, 0.001);
}

TEST(PlayingOnJack, ADurationThatIsPreferredWhileAUnitPlaysOpensNothing) {
    const JackServer server;
    const ProgramEnd end = runProgram(
        devicePlayer(server.environment(), "cubeb:jack",
                     {"start3", "sleep:0.5", "duration:0.02", "sleep:1", "say", "stop3"}));
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["prefer"], "0");
    EXPECT_EQ(end["route"], "(not said)") << "nothing has changed";
    EXPECT_NEAR(std::stod(end["slice"]), 4096 / 48000.0, 0.001);
}

TEST(PlayingOnAlsa, EveryFrameArrives) {
    const PulseServer pacing;
    AlsaFilePcm output(pacing);
    Environment environment = output.environment();
    // ALSA's settings are read by each open of libcubeb and given back by none.
    environment["ASAN_OPTIONS"] = "detect_leaks=0";
    // And the plug-in's server library is built without the thread sanitizer.
    environment["TSAN_OPTIONS"] = "report_bugs=0";
    const ProgramEnd end = runProgram(
        kept(devicePlayer(environment, "cubeb:alsa",
                          {"rate:48000", "duration:0.08", "start", "end", "sleep:0.5", "stop"}),
             output.folder().path()));
    ASSERT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end.errors, "");
    const Sound written{devicePlayerFormat(), output.takeWritten()};
    const Sound heard = alignedTo(devicePlayerNoise(), written);
    EXPECT_EQ(differences(devicePlayerNoise(), heard), std::vector<std::string>{})
        << written.bytes.size();
}

TEST(MicrophoneOnPipeWire, HearsWhatIsPlayed) {
    const PipeWireServer server;
    // With the long blocks that the test's server is made to have, its service for PulseAudio holds
    // back what a stream with little latency records, for ever longer.
    ASSERT_EQ(
        runProgram({.arguments = {"pw-metadata", "-n", "settings", "0", "clock.force-quantum", "0"},
                    .environment = server.environment()})
            .code,
        0);
    const std::string file = server.folder().file("heard.raw");
    double hertz = 0;
    // Short blocks are late on a busy machine: holes, but not every time.
    for (int attempt = 0; attempt < 6 && !(std::abs(hertz - 440) < 5); ++attempt) {
        const ProgramEnd end = runProgram(kept(
            devicePlayer(server.environment(), "cubeb",
                         {"start2", "listen:cap.monitor", "sleep:2", "stop2", "heard:" + file}),
            server.folder().path()));
        ASSERT_EQ(end["done"], "1") << end.text();
        std::ifstream bytes(file, std::ios::binary);
        const Sound heard{devicePlayerFormat(),
                          std::string(std::istreambuf_iterator<char>(bytes), {})};
        hertz = frequencyOf(heard.part(24000, 9600));
    }
    EXPECT_NEAR(hertz, 440, 5);
}

TEST(SystemEventsOnPipeWire, AnotherDefaultSinkIsANewRoute) {
    const PipeWireServer server;
    const auto pactl = [&](std::vector<std::string> words) {
        words.insert(words.begin(), "pactl");
        return runProgram({.arguments = words, .environment = server.environment()}).code;
    };
    ASSERT_EQ(pactl({"load-module", "module-null-sink", "sink_name=other", "rate=48000"}), 0);
    const std::string over = server.folder().file("over");
    Program player(devicePlayer(server.environment(), "cubeb",
                                {"start2", "sleep:0.5", "say", "await:" + over, "stop2"}));
    const auto says = [&](const char* line) {
        return eventually([&] { return player.output().find(line) != std::string::npos; });
    };
    ASSERT_TRUE(says("descriptors="));
    // The session manager may not know the new sink yet.
    EXPECT_TRUE(eventually([&] {
        pactl({"set-default-sink", "other"});
        return player.output().find("route=1") != std::string::npos;
    })) << player.output();
    std::ofstream(over) << "over";
    EXPECT_EQ(player.wait()["done"], "1");
}

}  // namespace
