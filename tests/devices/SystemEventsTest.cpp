// What the system does to the device, and what the program is told of it.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

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

    /// What the player was told, in order.
    static std::vector<std::string> notices(const std::string& output) {
        std::vector<std::string> told;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("route=") || line.starts_with("interruption=")) {
                told.push_back(line);
            }
        }
        return told;
    }
    /// How many blocks the player had rendered, each time it was asked.
    static std::vector<long> blocksOf(const std::string& output) {
        std::vector<long> blocks;
        for (std::size_t at = 0; (at = output.find("blocks=", at)) != std::string::npos; ++at) {
            blocks.push_back(std::atol(output.c_str() + at + 7));
        }
        return blocks;
    }
    [[nodiscard]] int countOf(const std::string& word) const {
        const std::string output = player_->output();
        int count = 0;
        for (std::size_t at = 0; (at = output.find(word, at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
    void unload(const std::string& module) const {
        const std::string modules = pactl({"list", "short", "modules"});
        const std::size_t found = modules.find("\t" + module);
        ASSERT_NE(found, std::string::npos) << modules;
        const std::size_t line = modules.rfind('\n', found) + 1;
        pactl({"unload-module", modules.substr(line, found - line)});
    }
    void removeCap() const { unload("module-null-sink\tsink_name=cap"); }
    /// A microphone, which hears nothing.
    void plugIn(const std::string& name, std::vector<std::string> settings = {}) const {
        settings.insert(settings.begin(),
                        {"load-module", "module-null-source", "source_name=" + name, "rate=48000"});
        pactl(settings);
    }
    void unplug(const std::string& name) const {
        unload("module-null-source\tsource_name=" + name);
    }
    /// The steps say how it goes on at the files "out" and "in".
    void followsTheOnlyMicrophone(std::vector<std::string> steps) {
        plugIn("headset");
        followsTheHeadset(std::move(steps));
    }
    void followsTheHeadset(std::vector<std::string> steps) {
        play(std::move(steps));
        ASSERT_TRUE(says("hearing=1"));
        unplug("headset");
        EXPECT_TRUE(says("route=2"));
        go("out");
        EXPECT_TRUE(says("hearing=0"));
        plugIn("headset");
        EXPECT_TRUE(says("route=1"));
        go("in");
        const ProgramEnd end = player_->wait();
        EXPECT_EQ(end["done"], "1");
        EXPECT_EQ(end["hearing"], "1");
        EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=2", "route=1"}));
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
    const std::vector<long> blocks = blocksOf(end.output);
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

TEST_F(SystemEvents, AServerThatStandsStillForLongIsAnInterruptionUntilItGoesOn) {
    play({"start", "sleep:0.5", "say", "await:" + file("still"), "say", "sleep:0.5", "say",
          "await:" + file("end"), "sleep:1.5", "stop"});
    ASSERT_TRUE(says("descriptors="));
    server_.freeze();
    EXPECT_TRUE(says("route=2"));
    EXPECT_TRUE(says("interruption=1"));
    go("still");
    ASSERT_TRUE(eventually([&] { return countOf("descriptors=") == 3; }));
    server_.thaw();
    EXPECT_TRUE(says("interruption=0"));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(notices(end.output),
              (std::vector<std::string>{"route=2", "interruption=1", "interruption=0"}));
    const std::vector<long> blocks = blocksOf(end.output);
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_GT(blocks[1], blocks[0] + 200) << "the clock went on for ten seconds";
    EXPECT_GT(blocks[2], blocks[1] + 10) << "and goes on while nothing can be opened";
}

TEST_F(SystemEvents, ASinkThatIsSuspendedForLongLeavesUnitsTheirCallbacks) {
    play({"start", "sleep:0.5", "say", "await:" + file("long"), "say", "await:" + file("end"),
          "stop"});
    ASSERT_TRUE(says("descriptors="));
    const auto before = std::chrono::steady_clock::now();
    pactl({"suspend-sink", "cap", "1"});
    ASSERT_TRUE(says("route=2"));
    // It counts as gone after ten seconds, and is opened anew, which helps nothing.
    std::this_thread::sleep_for(std::chrono::seconds(14));
    go("long");
    ASSERT_TRUE(eventually([&] { return blocksOf(player_->output()).size() == 2; }));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - before;
    const std::vector<long> blocks = blocksOf(player_->output());
    // Blocks of the clock are 512 frames. Until it drives a second passes.
    EXPECT_GT(static_cast<double>(blocks[1] - blocks[0]), (passed.count() - 3) * 48000 / 512);
    EXPECT_EQ(notices(player_->output()), (std::vector<std::string>{"route=2"}));
    pactl({"suspend-sink", "cap", "0"});
    EXPECT_TRUE(says("route=1"));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=2", "route=1"}));
}

TEST_F(SystemEvents, AProgramEndsWhileItsServerStandsStill) {
    for (const char* last : {"sleep:0", "stop2"}) {
        play({"start2", "sleep:0.5", "say", "await:" + file(last), last});
        ASSERT_TRUE(says("descriptors="));
        server_.freeze();
        const auto began = std::chrono::steady_clock::now();
        go(last);
        EXPECT_EQ(player_->wait()["done"], "1") << last;
        EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(15)) << last;
        server_.thaw();
    }
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

TEST_F(SystemEvents, ASinkThatIsRemovedIsANewRouteOnce) {
    pactl({"load-module", "module-null-sink", "sink_name=other", "rate=48000"});
    play({"start", "sleep:0.5", "say", "await:" + file("end"), "sleep:1", "say"});
    ASSERT_TRUE(says("descriptors="));
    removeCap();
    EXPECT_TRUE(says("route="));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=1"}));
}

TEST_F(SystemEvents, ADefaultSinkWithAnotherRateIsANewRouteAndTheRateOfTheProgram) {
    play({"start", "sleep:0.5", "say", "await:" + file("moved"), "say", "await:" + file("end"),
          "sleep:1"});
    ASSERT_TRUE(says("rate=48000"));
    pactl({"load-module", "module-null-sink", "sink_name=other", "rate=44100"});
    // Idle it would take the rate of what comes.
    const Kept another(
        {.arguments = {"pacat", "-p", "-d", "other", "--rate=44100", "--raw", "/dev/zero"},
         .environment = server_.environment()},
        server_.folder().path());
    ASSERT_TRUE(eventually([&] {
        return pactl({"list", "short", "sinks"}).find("44100Hz\tRUNNING") != std::string::npos;
    }));
    pactl({"set-default-sink", "other"});
    ASSERT_TRUE(says("route=1"));
    go("moved");
    EXPECT_TRUE(says("rate=44100"));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=1"}));
}

TEST_F(SystemEvents, ASinkThatIsMadeAnewWithAnotherRateEndsItsInterruptionWithThatRate) {
    play({"start", "sleep:0.5", "say", "await:" + file("back"), "say", "sleep:1"});
    ASSERT_TRUE(says("rate=48000"));
    removeCap();
    ASSERT_TRUE(says("interruption=1"));
    pactl({"load-module", "module-null-sink", "sink_name=cap", "rate=44100"});
    ASSERT_TRUE(says("interruption=0"));
    go("back");
    EXPECT_TRUE(says("rate=44100"));
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(notices(end.output),
              (std::vector<std::string>{"interruption=1", "route=8", "interruption=0"}));
}

TEST_F(SystemEvents, AnotherDefaultMicrophoneIsToldToWhoListensAlone) {
    plugIn("one");
    plugIn("other", {"channels=1", "channel_map=mono"});
    pactl({"set-default-source", "one"});
    play({"alone", "listen", "sleep:0.5", "say", "await:" + file("moved"), "say",
          "heard:/dev/null"});
    ASSERT_TRUE(says("inputChannels=2"));
    pactl({"set-default-source", "other"});
    EXPECT_TRUE(says("route=1"));
    go("moved");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_NE(end.output.find("inputChannels=1"), std::string::npos) << end.output;
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=1"}));
}

TEST_F(SystemEvents, AMicrophoneThatIsUnpluggedAndPluggedIsToldOnceEach) {
    plugIn("builtin");
    plugIn("headset");
    pactl({"set-default-source", "headset"});
    play({"start2", "listen", "sleep:0.5", "say", "await:" + file("out"), "sleep:1.5", "say",
          "await:" + file("in"), "sleep:1.5", "stop2", "heard:/dev/null"});
    ASSERT_TRUE(says("hearing=1"));
    unplug("headset");
    EXPECT_TRUE(says("route=1")) << "the server gives it another one";
    go("out");
    ASSERT_TRUE(eventually([&] { return countOf("hearing=1") == 2; }));
    EXPECT_EQ(notices(player_->output()), (std::vector<std::string>{"route=1"}));
    plugIn("headset");
    pactl({"set-default-source", "headset"});
    EXPECT_TRUE(eventually([&] { return notices(player_->output()).size() >= 2; }));
    go("in");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=1", "route=1"}));
    EXPECT_EQ(end["heardBeforeNow"], "1");
    EXPECT_EQ(end["heardInOrder"], "1");
}

TEST_F(SystemEvents, TheOnlyMicrophoneThatIsUnpluggedIsNotReplacedByTheSpeakers) {
    followsTheOnlyMicrophone({"start2", "listen", "sleep:0.5", "say", "await:" + file("out"), "say",
                              "await:" + file("in"), "say", "stop2", "heard:/dev/null"});
}

TEST_F(SystemEvents, TheOnlyMicrophoneOfWhoListensAloneIsAwayUntilItIsPluggedIn) {
    followsTheOnlyMicrophone({"alone", "listen", "sleep:0.5", "say", "await:" + file("out"), "say",
                              "await:" + file("in"), "say", "heard:/dev/null"});
}

TEST_F(SystemEvents, AMicrophoneThatWasNamedIsReplacedByNoOther) {
    plugIn("builtin");
    plugIn("headset");
    followsTheHeadset({"start2", "listen:headset", "sleep:0.5", "say", "await:" + file("out"),
                       "say", "await:" + file("in"), "say", "stop2", "heard:/dev/null"});
}

TEST_F(SystemEvents, AMicrophoneThatWasNamedIsReplacedByNoOtherForWhoListensAlone) {
    plugIn("builtin");
    plugIn("headset");
    followsTheHeadset({"alone", "listen:headset", "sleep:0.5", "say", "await:" + file("out"), "say",
                       "await:" + file("in"), "say", "heard:/dev/null"});
}

TEST_F(SystemEvents, AMicrophoneThatStandsStillBesideSpeakersIsToldAndToldAgain) {
    plugIn("headset");
    play({"start2", "listen", "sleep:0.5", "say", "await:" + file("end"), "say", "stop2",
          "heard:/dev/null"});
    ASSERT_TRUE(says("hearing=1"));
    pactl({"suspend-source", "headset", "1"});
    EXPECT_TRUE(says("route=2"));
    pactl({"suspend-source", "headset", "0"});
    EXPECT_TRUE(says("route=1"));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(end["hearing"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=2", "route=1"}));
}

TEST_F(SystemEvents, AMicrophoneAloneThatStandsStillIsToldOnceAndToldAgain) {
    plugIn("headset");
    play({"alone", "listen", "sleep:0.5", "say", "await:" + file("still"), "sleep:5", "say",
          "await:" + file("end"), "say", "heard:/dev/null"});
    ASSERT_TRUE(says("hearing=1"));
    pactl({"suspend-source", "headset", "1"});
    EXPECT_TRUE(says("route=2"));
    go("still");
    EXPECT_TRUE(says("hearing=0")) << "it has been opened anew by then";
    pactl({"suspend-source", "headset", "0"});
    EXPECT_TRUE(says("route=1"));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(end["hearing"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=2", "route=1"}));
}

TEST_F(SystemEvents, AServerThatStandsStillIsToldToWhoListensAloneAndToldAgainWhenItGoesOn) {
    plugIn("headset");
    play({"alone", "listen", "sleep:0.5", "say", "await:" + file("still"), "say",
          "await:" + file("end"), "say", "heard:/dev/null"});
    ASSERT_TRUE(says("hearing=1"));
    server_.freeze();
    EXPECT_TRUE(says("route=2"));
    go("still");
    EXPECT_TRUE(says("hearing=0"));
    server_.thaw();
    EXPECT_TRUE(says("route=1"));
    go("end");
    const ProgramEnd end = player_->wait();
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(end["hearing"], "1");
    EXPECT_EQ(notices(end.output), (std::vector<std::string>{"route=2", "route=1"}));
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

}  // namespace
