// Live sources of made-up blocks, in a real server.

#include "output/live/LiveSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/servers/PipeWireServer.h"
#include "support/servers/PulseServer.h"

namespace tqrecorder::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class LiveSinkTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the server's library is built without the thread sanitizer";
#endif
        server_ = std::make_unique<tqtest::PulseServer>();
        // The program that holds the sources inherits it.
        for (const auto& [name, value] : server_->environment()) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        sink_ =
            std::make_unique<LiveSink>([this](const std::string& line) { said_ += line + "\n"; },
                                       std::vector<std::string>{TQ_PULSE_HOLDER});
        ASSERT_TRUE(sink_->open()) << sink_->problems()[0];
    }
    void TearDown() override {
        if (sink_ != nullptr) {
            sink_->finish();
        }
    }
    /// A block of ten milliseconds of silence.
    void play(const std::string& unit, double rate, std::uint32_t channels = 2) {
        const BlockFormat format{rate, channels, 32, true};
        const std::vector<std::byte> zeros(static_cast<std::size_t>(rate / 100) *
                                           format.frameBytes());
        sink_->block(game_, {.track = 1, .unit = unit, .format = format, .frames = zeros});
        sink_->tick(0);
    }
    [[nodiscard]] std::string sources() const {
        return tqtest::runProgram({.arguments = {"pactl", "list", "short", "sources"},
                                   .environment = server_->environment()})
            .text();
    }
    [[nodiscard]] bool isThere(const std::string& name) const {
        return sources().find("tqaudiorecord.game." + name + "\t") != std::string::npos;
    }

    /// The program that holds the sources.
    [[nodiscard]] static pid_t holder() {
        const std::string self = std::to_string(getpid());
        std::ifstream children("/proc/" + self + "/task/" + self + "/children");
        std::error_code gone;
        for (pid_t child = 0; children >> child;) {
            const auto program =
                std::filesystem::read_symlink("/proc/" + std::to_string(child) + "/exe", gone);
            if (program.filename() == std::filesystem::path(TQ_PULSE_HOLDER).filename()) {
                return child;
            }
        }
        return 0;
    }
    /// Takes every descriptor that it has not got from it; gives what it was allowed before.
    [[nodiscard]] static rlimit allowNoMoreFiles(pid_t process) {
        rlimit before{};
        EXPECT_EQ(prlimit(process, RLIMIT_NOFILE, nullptr, &before), 0);
        rlim_t free = 0;
        const std::string open = "/proc/" + std::to_string(process) + "/fd/";
        while (
            std::filesystem::exists(std::filesystem::symlink_status(open + std::to_string(free)))) {
            ++free;
        }
        const rlimit none{free, before.rlim_max};
        EXPECT_EQ(prlimit(process, RLIMIT_NOFILE, &none, nullptr), 0);
        return before;
    }

    const Process game_{1, 1001, "game", true};
    std::unique_ptr<tqtest::PulseServer> server_;
    std::unique_ptr<LiveSink> sink_;
    std::string said_;
};

TEST_F(LiveSinkTest, ASourceThatTheServerRefusesTakesNoOtherWithIt) {
    constexpr double kBeyondTheServer = 900'000;
    play("music", 48000);
    play("bats", kBeyondTheServer);
    play("voice", 48000);
    EXPECT_TRUE(tqtest::eventually([&] {
        play("bats", kBeyondTheServer);
        play("voice", 48000);
        return isThere("music") && isThere("voice") &&
               said_.find("was refused") != std::string::npos;
    })) << sources();
    EXPECT_THAT(said_, HasSubstr("live source: game: bats was refused: "));
    EXPECT_THAT(said_, Not(HasSubstr("went away")));
    EXPECT_FALSE(isThere("bats"));
}

TEST_F(LiveSinkTest, ASourceWhosePipeCannotBeOpenedIsToldAndTakesNoOtherWithIt) {
    play("music", 48000);
    ASSERT_TRUE(tqtest::eventually([&] { return isThere("music"); })) << sources();
    const pid_t holding = holder();
    ASSERT_NE(holding, 0);
    const rlimit before = allowNoMoreFiles(holding);
    EXPECT_TRUE(tqtest::eventually([&] {
        play("voice", 48000);
        return said_.find("was refused") != std::string::npos;
    })) << sources();
    EXPECT_THAT(said_, testing::EndsWith("live source: game: voice was refused: its pipe cannot be "
                                         "opened; does the server run for this user?\n"));
    EXPECT_TRUE(tqtest::eventually([&] { return !isThere("voice"); }))
        << "nothing of it stays in the server: " << sources();
    ASSERT_EQ(prlimit(holding, RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_TRUE(tqtest::eventually([&] {
        play("effects", 48000);
        return isThere("effects") && isThere("music");
    })) << sources();
}

TEST_F(LiveSinkTest, ALauncherThatIsSilentGivesTheNameToTheFirstThatSounds) {
    const BlockFormat format{48000, 2, 32, true};
    const std::vector<std::byte> sound(480 * format.frameBytes(), std::byte{0x3c});
    const auto sounds = [&](const Process& who) {
        sink_->block(who, {.track = 1, .unit = "music", .format = format, .frames = sound});
    };
    // One that sounds at once, and one that is silent first.
    const Process other{2, 1002, "game", false};
    for (const bool isSilentFirst : {false, true}) {
        said_.clear();
        play("music", 48000);
        if (isSilentFirst) {
            sink_->block(other, {.track = 1,
                                 .unit = "music",
                                 .format = format,
                                 .frames = std::vector<std::byte>(480 * format.frameBytes())});
        }
        ASSERT_TRUE(tqtest::eventually([&] {
            return isThere("music") && isThere("music.2") == isSilentFirst;
        })) << sources();
        sounds(other);
        EXPECT_THAT(said_, testing::StartsWith("live source: game: music\n"));
        EXPECT_THAT(said_, testing::EndsWith("live source: game: music (2)\n"
                                             "live source: game: music\n"));
        // Its own is numbered now, and stays it.
        said_.clear();
        sounds(game_);
        EXPECT_EQ(said_, "");
        ASSERT_TRUE(tqtest::eventually([&] {
            sink_->tick(0);
            return isThere("music") && isThere("music.2");
        })) << sources()
            << said_;
        sink_->processEnded(game_, {});
        ASSERT_TRUE(tqtest::eventually([&] { return isThere("music") && !isThere("music.2"); }))
            << sources();
        sink_->processEnded(other, {});
        EXPECT_TRUE(tqtest::eventually([&] { return !isThere("music"); })) << sources();
        EXPECT_EQ(said_, "") << "nothing was refused";
    }
}

TEST_F(LiveSinkTest, ATrackThatGoesOnAtAnotherRateComesBackUnderItsName) {
    for (const double rate : {48000.0, 44100.0, 22050.0}) {
        const std::string shown = "2ch " + std::to_string(static_cast<int>(rate)) + "Hz";
        play("music", rate);
        ASSERT_TRUE(tqtest::eventually([&] {
            const std::string all = sources();
            const std::size_t line = all.find("tqaudiorecord.game.music\t");
            return line != std::string::npos &&
                   all.substr(line, all.find('\n', line) - line).find(shown) != std::string::npos;
        })) << sources();
    }
}

TEST_F(LiveSinkTest, TheRecordersMicrophoneIsNoSource) {
    const BlockFormat format{44100, 1, 32, true};
    const std::vector<std::byte> zeros(441 * format.frameBytes());
    sink_->block(
        game_,
        {.track = kMicrophoneTrack, .unit = kMicrophoneName, .format = format, .frames = zeros});
    EXPECT_EQ(said_, "");
}

TEST_F(LiveSinkTest, ATrackOfTooManyChannelsIsToldOnce) {
    for (int block = 0; block < 3; ++block) {
        play("organ", 48000, 12);
    }
    EXPECT_EQ(said_, "no live source for game: organ: it has 12 channels, and 8 are the most\n");
}

TEST_F(LiveSinkTest, ATrackBeyondTheMostSourcesIsToldOnce) {
    for (std::size_t unit = 0; unit <= LiveSink::kMostSources; ++unit) {
        play("unit-" + std::to_string(unit), 48000);
    }
    play("unit-24", 48000);
    EXPECT_THAT(said_, HasSubstr("live source: game: unit-23\n"));
    EXPECT_THAT(said_, testing::EndsWith("no live source for game: unit-24: 24 sources play "
                                         "already, which is the most\n"));
    EXPECT_EQ(said_.find("unit-24"), said_.rfind("unit-24"));
}

/// The server takes a right of the program away that holds the sources, after its first.
TEST(LiveSinkOnPipeWire, ASourceThatTheServerRefusesIsToldOnceAndTakesNoOtherWithIt) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the server's library is built without the thread sanitizer";
#endif
    const tqtest::PipeWireServer server;
    for (const auto& [name, value] : server.environment()) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    const auto ask = [&](std::vector<std::string> command) {
        return tqtest::runProgram(
                   {.arguments = std::move(command), .environment = server.environment()})
            .text();
    };
    const auto isThere = [&](const char* name) {
        return ask({"pactl", "list", "short", "sources"}).find(name) != std::string::npos;
    };
    std::string said;
    LiveSink sink([&](const std::string& line) { said += line + "\n"; }, {TQ_PIPEWIRE_HOLDER});
    ASSERT_TRUE(sink.open()) << sink.problems()[0];
    const Process game{1, 1001, "game", true};
    const BlockFormat format{48000, 2, 32, true};
    const std::vector<std::byte> zeros(480 * format.frameBytes());
    const auto play = [&](const char* unit) {
        sink.block(game, {.track = 1, .unit = unit, .format = format, .frames = zeros});
        sink.tick(0);
    };
    play("music");
    ASSERT_TRUE(tqtest::eventually([&] { return isThere("tqaudiorecord.game.music"); }));
    const std::string client =
        ask({"sh", "-c",
             "pw-dump | python3 -c 'import json, sys\n"
             "for one in json.load(sys.stdin):\n"
             "    props = (one.get(\"info\") or {}).get(\"props\") or {}\n"
             "    if one[\"type\"].endswith(\":Client\") and props.get(\"application.name\") == "
             "\"tqaudiorecord\": print(one[\"id\"], end=\"\")'"});
    ASSERT_NE(client, "");
    constexpr const char* kRead = "256";
    (void)ask({"pw-cli", "permissions", client, "0", kRead});
    play("voice");
    play("effects");
    EXPECT_TRUE(tqtest::eventually([&] {
        play("voice");
        play("effects");
        return said.find("voice was refused: ") != std::string::npos &&
               said.find("effects was refused: ") != std::string::npos;
    })) << said;
    EXPECT_EQ(said.find("voice was"), said.rfind("voice was"));
    EXPECT_THAT(said, Not(HasSubstr("music was refused")));
    EXPECT_THAT(said, Not(HasSubstr("went away")));
    EXPECT_TRUE(isThere("tqaudiorecord.game.music"));
    EXPECT_FALSE(isThere("tqaudiorecord.game.voice"));
    sink.finish();
}

}  // namespace
}  // namespace tqrecorder::test
