// Live sources of a recording, as clients of both sound servers find them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "examples/game_host/GameSounds.h"
#include "support/servers/PipeWireServer.h"
#include "support/servers/PulseServer.h"
#include "support/sound/Comparison.h"

namespace tqrecorder::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using tqtest::Environment;
using tqtest::eventually;
using tqtest::Program;
using tqtest::Sound;

/// The longest piece of `wanted` that is in `got` frame for frame, looked for from places all over.
std::size_t longestPiece(const Sound& wanted, const Sound& got) {
    constexpr std::size_t kApart = 4000;
    std::size_t longest = 0;
    for (std::size_t from = 0; from + kApart < got.frames(); from += kApart) {
        const Sound probe = got.part(from, 16);
        const std::size_t place = wanted.bytes.find(probe.bytes);
        if (probe.isSilent(0) || place == std::string::npos) {
            continue;
        }
        const std::size_t at = place / wanted.format.bytesPerFrame();
        std::size_t same = 0;
        while (at + same < wanted.frames() && from + same < got.frames() &&
               wanted.frame(at + same) == got.frame(from + same)) {
            ++same;
        }
        longest = std::max(longest, same);
    }
    return longest;
}

template <typename Server>
class LiveSourcesTest : public testing::Test {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the servers' libraries are built without the thread sanitizer";
#endif
        server_ = std::make_unique<Server>();
        ASSERT_TRUE(tqtest::makeGameSounds(sounds_));
    }
    void TearDown() override {
        for (const pid_t process : left_) {
            kill(process, SIGKILL);
        }
    }

    [[nodiscard]] Environment environment() const {
        Environment environment = server_->environment();
        environment["TQ_AUDIO_DEVICE"] = "null";
        environment["XDG_CACHE_HOME"] = folder_.file("cache");
        environment["XDG_MUSIC_DIR"] = folder_.file("music");
        return environment;
    }
    [[nodiscard]] std::unique_ptr<Program> record(std::vector<std::string> options,
                                                  const std::vector<std::string>& command) const {
        options.insert(options.begin(), {TQ_RECORDER, "--live"});
        options.insert(options.end(), command.begin(), command.end());
        return std::make_unique<Program>(
            tqtest::ProgramSetup{.arguments = options, .environment = environment()});
    }
    [[nodiscard]] std::vector<std::string> game() const {
        return {"--", TQ_GAME_HOST, "--quiet", "--seconds", "300", "--sounds", sounds_.file("")};
    }
    /// Plays the sound on the server, again and again.
    [[nodiscard]] std::vector<std::string> player(const Sound& sound) const {
        tqtest::writeWav(sound, folder_.file("noise.wav"));
        return {"--", "sh", "-c", "while paplay -d cap \"$0\"; do :; done",
                folder_.file("noise.wav")};
    }
    [[nodiscard]] std::string say(const std::vector<std::string>& command) const {
        return tqtest::runProgram({.arguments = command, .environment = environment()}).text();
    }
    [[nodiscard]] std::string sources() const {
        return say({"pactl", "list", "sources"});
    }
    [[nodiscard]] bool has(const std::string& text) const {
        return sources().find(text) != std::string::npos;
    }
    /// The first source whose name has that in it.
    [[nodiscard]] std::string sourceWith(const std::string& text) const {
        std::string found;
        (void)eventually([&] {
            const std::string list = sources();
            const std::size_t begin = list.find("Name: tqaudiorecord." + text);
            if (begin != std::string::npos) {
                found = list.substr(begin + 6, list.find('\n', begin) - begin - 6);
            }
            return !found.empty();
        });
        return found;
    }
    /// Modules, pipes and processes of ours are gone.
    [[nodiscard]] bool isNothingLeft() const {
        const std::string all = sources() + say({"pactl", "list", "modules"});
        bool isClean = all.find("tqaudiorecord") == std::string::npos;
        for (const auto& entry : fs::directory_iterator(server_->folder().file("run"))) {
            isClean = isClean && entry.path().filename().string().find("tqaudiorecord-live") ==
                                     std::string::npos;
        }
        return isClean;
    }
    [[nodiscard]] std::unique_ptr<tqtest::Recording> listen(const std::vector<std::string>& with,
                                                            const tqtest::SoundFormat& format) {
        return std::make_unique<tqtest::Recording>(with, environment(), folder_, format);
    }
    [[nodiscard]] static std::vector<std::string> parec(const std::string& source) {
        return {"parec",          "-d",           source,         "--raw",
                "--format=s16le", "--rate=48000", "--channels=2", "--latency-msec=20"};
    }
    /// What it started is not ended with it when it is killed.
    void keepInMind(const Program& program) {
        const std::vector<pid_t> children = program.children();
        left_.insert(left_.end(), children.begin(), children.end());
    }

    const TemporaryFolder folder_;
    const TemporaryFolder sounds_;
    std::unique_ptr<Server> server_;
    std::vector<pid_t> left_;
};

using Servers = testing::Types<tqtest::PulseServer, tqtest::PipeWireServer>;
TYPED_TEST_SUITE(LiveSourcesTest, Servers);

TYPED_TEST(LiveSourcesTest, ATracksSamplesAreReadFromItsSource) {
    const Sound noise = tqtest::markedNoise({}, 10 * 48000);
    auto recording = this->record({}, this->player(noise));
    const std::string source = this->sourceWith("pacat.pulse-");
    ASSERT_FALSE(source.empty()) << recording->errors();
    EXPECT_TRUE(this->has("Description: pacat: pulse-")) << this->sources();
    auto heard = this->listen(this->parec(source), {});
    EXPECT_TRUE(eventually([&] { return longestPiece(noise, heard->soFar()) >= 12000; }))
        << "of " << heard->soFar().frames() << ": " << longestPiece(noise, heard->soFar());
    heard.reset();
    recording->signal(SIGINT);
    EXPECT_EQ(recording->wait().code, 0) << recording->errors();
    EXPECT_TRUE(eventually([&] { return this->isNothingLeft(); })) << this->sources();
}

TYPED_TEST(LiveSourcesTest, TheMixAndEveryTrackAreThereAndNoFile) {
    auto recording = this->record({}, this->game());
    EXPECT_FALSE(this->sourceWith("game_host.mix").empty()) << recording->errors();
    EXPECT_FALSE(this->sourceWith("game_host.unit-").empty()) << recording->errors();
    EXPECT_FALSE(this->sourceWith("game_host.graph-").empty()) << recording->errors();
    EXPECT_THAT(recording->errors(), HasSubstr("tqaudiorecord: live source: game_host: mix\n"));
    recording->signal(SIGINT);
    const tqtest::ProgramEnd end = recording->wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_FALSE(fs::exists(this->folder_.file("music"))) << end.errors;
}

TYPED_TEST(LiveSourcesTest, NothingIsLeftOfARecorderThatIsKilled) {
    auto recording = this->record({}, this->game());
    ASSERT_FALSE(this->sourceWith("game_host.mix").empty()) << recording->errors();
    this->keepInMind(*recording);
    recording->signal(SIGKILL);
    EXPECT_EQ(recording->wait().signal, SIGKILL);
    EXPECT_TRUE(eventually([&] { return this->isNothingLeft(); })) << this->sources();
}

TYPED_TEST(LiveSourcesTest, WhereNoServerAnswersTheCommandIsNotStarted) {
    Environment nowhere = this->environment();
    nowhere["PULSE_SERVER"] = "unix:" + this->folder_.file("none");
    nowhere["PIPEWIRE_RUNTIME_DIR"] = this->folder_.file("none");
    const tqtest::ProgramEnd end = tqtest::runProgram(
        {.arguments = {TQ_RECORDER, "--live", "touch", this->folder_.file("started")},
         .environment = nowhere});
    EXPECT_EQ(end.code, 2);
    EXPECT_THAT(end.errors, HasSubstr("tqaudiorecord: --live: no sound server answers: "
                                      "PulseAudio: Connection refused; PipeWire: "));
    EXPECT_FALSE(fs::exists(this->folder_.file("started")));
}

TYPED_TEST(LiveSourcesTest, AServerThatIsStartedAgainHasThemAgainAndTheRecordingGoesOn) {
    auto recording = this->record({"-o", this->folder_.file("out.wav")}, this->game());
    ASSERT_FALSE(this->sourceWith("game_host.mix").empty()) << recording->errors();
    const auto says = [&](const std::string& what, std::size_t from) {
        return recording->errors().find(what, from) != std::string::npos;
    };
    for (int times = 0; times < 2; ++times) {
        const std::size_t said = recording->errors().size();
        this->server_->kill();
        ASSERT_TRUE(eventually([&] { return says(" went away; they come back with it", said); }))
            << recording->errors();
        this->server_->start();
        EXPECT_TRUE(eventually([&] { return says("live sources: they are back, on ", said); }))
            << recording->errors();
        EXPECT_FALSE(this->sourceWith("game_host.mix").empty()) << recording->errors();
    }
    recording->signal(SIGINT);
    const tqtest::ProgramEnd end = recording->wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_THAT(end.errors, HasSubstr("0 gaps filled with silence, 0 blocks lost"));
    EXPECT_TRUE(eventually([&] { return this->isNothingLeft(); })) << this->sources();
}

TYPED_TEST(LiveSourcesTest, AServerThatStandsStillHoldsNobodyUp) {
    const std::string path = this->folder_.file("out.wav");
    auto recording = this->record({"-o", path}, this->game());
    const std::string source = this->sourceWith("game_host.mix");
    ASSERT_FALSE(source.empty()) << recording->errors();
    auto heard = this->listen(this->parec(source), {});
    this->server_->freeze();
    std::error_code none;
    const auto size = [&] { return fs::file_size(path, none); };
    const auto before = size();
    EXPECT_TRUE(eventually([&] { return size() > before + 2 * 4 * 44100; }));
    recording->signal(SIGINT);
    const tqtest::ProgramEnd end = recording->wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_THAT(end.errors, HasSubstr("0 blocks lost"));
    this->server_->thaw();
    EXPECT_TRUE(eventually([&] { return this->isNothingLeft(); })) << this->sources();
}

using LiveSourcesOnPipeWire = LiveSourcesTest<tqtest::PipeWireServer>;
using LiveSourcesOnPulse = LiveSourcesTest<tqtest::PulseServer>;

TEST_F(LiveSourcesOnPipeWire, ItsOwnClientsReadTheTracksSamplesToo) {
    const Sound noise = tqtest::markedNoise({}, 10 * 48000);
    auto recording = record({}, player(noise));
    const std::string source = sourceWith("pacat.pulse-");
    ASSERT_FALSE(source.empty()) << recording->errors();
    auto heard = listen(
        {"pw-record", "--target", source, "--rate=48000", "--format=s16", "--channels=2", "-"}, {});
    EXPECT_TRUE(eventually([&] { return longestPiece(noise, heard->soFar()) >= 12000; }))
        << "of " << heard->soFar().frames() << ": " << longestPiece(noise, heard->soFar());
}

TEST_F(LiveSourcesOnPulse, WhatAHolderThatWasKilledHasLeftIsTakenAwayByTheNext) {
    auto first = record({}, game());
    ASSERT_FALSE(sourceWith("game_host.mix").empty()) << first->errors();
    keepInMind(*first);
    for (const pid_t process : left_) {
        kill(process, SIGKILL);
    }
    first->signal(SIGKILL);
    (void)first->wait();
    ASSERT_FALSE(isNothingLeft()) << "nobody was there who could";
    auto second = record({}, game());
    ASSERT_TRUE(eventually([&] {
        return second->errors().find("live source: game_host: mix") != std::string::npos;
    })) << second->errors();
    EXPECT_FALSE(has("tqaudiorecord.game_host.mix.2"));
    second->signal(SIGINT);
    const tqtest::ProgramEnd end = second->wait();
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_TRUE(eventually([&] { return isNothingLeft(); })) << sources();
}

}  // namespace
}  // namespace tqrecorder::test
