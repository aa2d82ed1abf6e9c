// What the system does to the device, and what the program is told of it.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "DeviceRun.h"
#include "support/servers/PulseServer.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;

/// A player that says what it hears of, on a server of the test's.
class SystemEvents : public testing::Test {
  protected:
    void play(std::vector<std::string> steps) {
        player_ = std::make_unique<Program>(
            devicePlayer(server_.environment(), "cubeb", std::move(steps)));
    }
    [[nodiscard]] std::string file(const char* name) const { return server_.folder().file(name); }
    void go(const char* name) const { std::ofstream(file(name)) << name; }
    [[nodiscard]] bool says(const std::string& line) const {
        return eventually([&] { return player_->output().find(line) != std::string::npos; });
    }
    std::string pactl(std::vector<std::string> words) const {
        words.insert(words.begin(), "pactl");
        return runProgram({.arguments = words, .environment = server_.environment()}).output;
    }

    PulseServer server_{devicePlayerFormat()};
    std::unique_ptr<Program> player_;
};

TEST_F(SystemEvents, AServerThatDiesIsAnInterruptionUntilItIsBack) {
    play({"start", "sleep:0.5", "say", "await:" + file("gone"), "sleep:0.3", "say",
          "await:" + file("back"), "sleep:0.3", "say", "stop"});
    ASSERT_TRUE(says("descriptors="));
    server_.kill();
    ASSERT_TRUE(says("interruption=1"));
    go("gone");
    server_.start();
    ASSERT_TRUE(says("interruption=0"));
    EXPECT_TRUE(eventually([&] { return !pactl({"list", "short", "sink-inputs"}).empty(); }));
    go("back");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1") << end.text();
    // It kept its callbacks all the time.
    std::vector<long> blocks;
    for (std::size_t at = 0; (at = end.output.find("blocks=", at)) != std::string::npos; ++at) {
        blocks.push_back(std::atol(end.output.c_str() + at + 7));
    }
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_GT(blocks[1], blocks[0] + 20);
    EXPECT_GT(blocks[2], blocks[1] + 20);
}

TEST_F(SystemEvents, AServerThatStandsStillIsToldAndToldAgainWhenItGoesOn) {
    play({"start2", "sleep:0.5", "say", "await:" + file("end"), "stop2"});
    ASSERT_TRUE(says("descriptors="));
    server_.freeze();
    EXPECT_TRUE(says("route=2"));
    server_.thaw();
    EXPECT_TRUE(says("route=1"));
    EXPECT_EQ(player_->output().find("interruption="), std::string::npos);
    go("end");
    EXPECT_EQ(player_->wait()["done"], "1");
}

TEST_F(SystemEvents, AnotherDefaultSinkIsANewRouteAndIsHeard) {
    pactl({"load-module", "module-null-sink", "sink_name=other", "rate=48000"});
    play({"start", "sleep:0.5", "say", "await:" + file("end")});
    ASSERT_TRUE(says("descriptors="));
    pactl({"set-default-sink", "other"});
    EXPECT_TRUE(says("route=1"));
    go("end");
    EXPECT_EQ(player_->wait()["done"], "1");
}

TEST_F(SystemEvents, ASinkThatIsRemovedIsANewRoute) {
    pactl({"load-module", "module-null-sink", "sink_name=other", "rate=48000"});
    play({"start", "sleep:0.5", "say", "await:" + file("end"), "sleep:0.5", "say"});
    ASSERT_TRUE(says("descriptors="));
    const std::string modules = pactl({"list", "short", "modules"});
    const std::size_t cap = modules.find("\tmodule-null-sink\tsink_name=cap");
    ASSERT_NE(cap, std::string::npos);
    const std::size_t line = modules.rfind('\n', cap) + 1;
    pactl({"unload-module", modules.substr(line, cap - line)});
    EXPECT_TRUE(says("route="));
    go("end");
    EXPECT_EQ(player_->wait()["done"], "1");
}

TEST_F(SystemEvents, AMachineThatSleepsIsAnInterruptionAndWaitsUntilItIsTold) {
    needTool("dbus-daemon", "dbus-daemon");
    const std::string address = "unix:path=" + file("bus");
    const Kept bus({.arguments = {"dbus-daemon", "--session", "--nofork", "--nopidfile",
                                  "--address=" + address},
                    .environment = server_.environment()},
                   server_.folder().path());
    awaitReady(bus, "the bus", [&] { return std::filesystem::exists(file("bus")); });
    Environment environment = server_.environment();
    environment["DBUS_SYSTEM_BUS_ADDRESS"] = address;
    const Kept manager(
        {.arguments = {TQ_LOGIN_MANAGER, file("sleep"), file("wake")}, .environment = environment},
        server_.folder().path());
    awaitReady(manager, "the login manager",
               [&] { return manager.text().find("ready") != std::string::npos; });
    player_ = std::make_unique<Program>(devicePlayer(
        environment, "cubeb", {"start", "await:" + file("back"), "sleep:0.3", "say", "stop"}));
    const auto managerSays = [&](const char* word) {
        return eventually([&] { return manager.text().find(word) != std::string::npos; });
    };
    ASSERT_TRUE(managerSays("delayed")) << manager.text();
    go("sleep");
    ASSERT_TRUE(says("interruption=1"));
    EXPECT_TRUE(managerSays("released")) << manager.text();
    EXPECT_TRUE(eventually([&] { return pactl({"list", "short", "sink-inputs"}).empty(); }));
    go("wake");
    ASSERT_TRUE(says("interruption=0"));
    EXPECT_TRUE(eventually([&] { return !pactl({"list", "short", "sink-inputs"}).empty(); }));
    go("back");
    EXPECT_EQ(player_->wait()["done"], "1");
}

TEST_F(SystemEvents, TwoHundredStartsAndStopsLeaveNothingBehind) {
    play({"cycles:1", "sleep:0.5", "say", "cycles:200", "sleep:0.5", "say"});
    const ProgramEnd end = player_->wait();
    ASSERT_EQ(end["done"], "1") << end.text();
    const auto numberAt = [&](std::size_t at) {
        return std::atol(end.output.c_str() + end.output.find('=', at) + 1);
    };
    const long threads = numberAt(end.output.find("threads="));
    EXPECT_LE(numberAt(end.output.rfind("threads=")), threads + 1) << "the clock's is kept";
    EXPECT_EQ(numberAt(end.output.rfind("descriptors=")),
              numberAt(end.output.find("descriptors=")));
}

}  // namespace
