// What the server's microphone hears comes through element 1; here it hears what the program plays.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "DeviceRun.h"
#include "ServerRun.h"
#include "support/servers/PulseServer.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;

Sound heardIn(const std::string& file) {
    std::ifstream bytes(file, std::ios::binary);
    return {devicePlayerFormat(), std::string(std::istreambuf_iterator<char>(bytes), {})};
}

TEST(MicrophoneOnPulse, HearsEveryFrameThatIsPlayed) {
    const PulseServer server(devicePlayerFormat());
    const std::string file = server.folder().file("heard.raw");
    const ProgramEnd end =
        runProgram(kept(devicePlayer(server.environment(), "cubeb",
                                     {"duration:0.08", "listen:cap.monitor", "say", "sleep:0.5",
                                      "start", "end", "sleep:0.5", "stop", "heard:" + file}),
                        server.folder().path()));
    ASSERT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["inputChannels"], "2");
    const Sound heard = heardIn(file);
    std::string found;
    for (const std::string& line : differences(devicePlayerNoise(), heard.trimmed())) {
        found += line + "\n";
    }
    EXPECT_EQ(found, "") << heard.frames();
}

TEST(MicrophoneOnPulse, FullDuplexDropsNothing) {
    const PulseServer server(devicePlayerFormat());
    Environment environment = server.environment();
    environment["TQ_AUDIO_DEVICE"] = "cubeb";
    // On a machine with more to do than it can the server leaves holes itself: not every time.
    std::string disturbances;
    for (int attempt = 0; attempt < 5 && disturbances != "0"; ++attempt) {
        const ProgramEnd end = runProgram(
            kept({.arguments = {TQ_FULL_DUPLEX, "5", "cap.monitor"}, .environment = environment},
                 server.folder().path()));
        EXPECT_GT(std::atol(end["frames"].c_str()), 200000) << end.text();
        disturbances = end["disturbances"];
    }
    EXPECT_EQ(disturbances, "0");
}

TEST(MicrophoneOnPulse, IsOpenOnlyWhileSomebodyListens) {
    const PulseServer server(devicePlayerFormat());
    Program player(
        devicePlayer(server.environment(), "cubeb",
                     {"start", "sleep:0.5", "say", "await:" + server.folder().file("a"),
                      "listen:cap.monitor", "await:" + server.folder().file("b"), "heard:/dev/null",
                      "sleep:0.5", "say", "await:" + server.folder().file("c")}));
    const auto recorders = [&] {
        return runProgram({.arguments = {"pactl", "list", "short", "source-outputs"},
                           .environment = server.environment()})
            .output;
    };
    const auto go = [&](const char* name) { std::ofstream(server.folder().file(name)) << name; };
    ASSERT_TRUE(eventually([&] { return player.output().find("threads=") != std::string::npos; }));
    EXPECT_EQ(recorders(), "");
    go("a");
    EXPECT_TRUE(eventually([&] { return !recorders().empty(); }));
    go("b");
    EXPECT_TRUE(eventually([&] { return recorders().empty(); }));
    go("c");
    EXPECT_EQ(player.wait()["done"], "1");
}

template <typename Server>
class MachineWithoutMicrophone : public ServerRun<Server> {};
TYPED_TEST_SUITE(MachineWithoutMicrophone, SoundServers, SoundServerNames);

TYPED_TEST(MachineWithoutMicrophone, DoesNotHearItsOwnSpeakers) {
    this->run({"start2", "listen", "sleep:1", "say", "stop2", "heard:" + this->file("heard")});
    const ProgramEnd end = this->finish();
    ASSERT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["hearing"], "0") << "their monitor is the server's default source";
    EXPECT_EQ(end["inputChannels"], "0");
    EXPECT_EQ(heardIn(this->file("heard")).trimmed().frames(), 0U);
}

}  // namespace
