// What a program of the platform plays arrives at the sound server as it was rendered.

#include <gtest/gtest.h>

#include "DeviceRun.h"
#include "examples/game_host/GameSounds.h"
#include "support/servers/PipeWireServer.h"
#include "support/servers/PulseServer.h"
#include "support/servers/Recording.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;

std::string joined(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines) {
        all += line + "\n";
    }
    return all;
}

TEST(PlayingOnPulse, EveryFrameArrivesFromTheFirstToTheLast) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    const ProgramEnd end = runProgram(
        kept(devicePlayer(server.environment(), "cubeb", {"duration:0.08", "start", "end", "stop"}),
             server.folder().path()));
    ASSERT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end.errors, "");
    EXPECT_EQ(joined(differences(devicePlayerNoise(), recording->finish().trimmed())), "");
}

TEST(PlayingOnPulse, TwoUnitsAreOneStream) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    Program player(devicePlayer(server.environment(), "cubeb",
                                {"start", "start2", "sleep:1", "say", "end", "stop", "stop2"}));
    ASSERT_TRUE(eventually([&] { return player.output().find("threads=") != std::string::npos; }));
    const ProgramEnd streams = runProgram({.arguments = {"pactl", "list", "short", "sink-inputs"},
                                           .environment = server.environment()});
    EXPECT_EQ(std::count(streams.output.begin(), streams.output.end(), '\n'), 1) << streams.text();
    EXPECT_EQ(player.wait()["done"], "1");
}

TEST(PlayingOnPulse, APreferredRateAndDurationAreTheDevices) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    const ProgramEnd end = runProgram(kept(devicePlayer(server.environment(), "cubeb",
                                                        {"rate:32000", "duration:0.08", "start2",
                                                         "sleep:0.5", "say", "sleep:1", "stop2"}),
                                           server.folder().path()));
    EXPECT_EQ(end["prefer"], "0");
    EXPECT_EQ(end["rate"], "32000");
    EXPECT_GT(std::stod(end["slice"]), 0.02);
    EXPECT_NEAR(std::stod(end["outputLatency"]), 0.16, 0.001) << "two of the preferred durations";
    const Sound heard = recording->finish().trimmed();
    EXPECT_NEAR(frequencyOf(heard.part(12000, 48000)), 440, 1);
}

TEST(PlayingOnPulse, WhatALibrarysConstructorStartsIsHeardBehindIt) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    Environment environment = server.environment();
    environment["TQ_AUDIO_DEVICE"] = "cubeb";
    const ProgramEnd end =
        runProgram(kept({.arguments = {TQ_CONSTRUCTOR, TQ_CONSTRUCTED}, .environment = environment},
                        server.folder().path()));
    EXPECT_EQ(end["constructed"], "1") << end.text();
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end.errors, "") << "the module is loaded behind the constructor";
    const Sound heard = recording->finish().trimmed();
    ASSERT_GT(heard.frames(), 48000U);
    EXPECT_NEAR(frequencyOf(heard.part(12000, 24000)), 440, 5);
}

TEST(PlayingOnPulse, APreferredDurationThatIsTooShortIsTheServersLeast) {
    const PulseServer server(devicePlayerFormat());
    const ProgramEnd end =
        runProgram(kept(devicePlayer(server.environment(), "cubeb",
                                     {"duration:0.005", "start2", "sleep:0.5", "say", "stop2"}),
                        server.folder().path()));
    EXPECT_EQ(end["prefer"], "0");
    EXPECT_NEAR(std::stod(end["outputLatency"]), 0.025, 0.001);
}

TEST(PlayingOnPulse, APreferredDurationThatIsTooShortChangesNothingThatPlays) {
    const PulseServer server(devicePlayerFormat());
    const ProgramEnd end = runProgram(
        kept(devicePlayer(server.environment(), "cubeb",
                          {"start2", "sleep:0.5", "duration:0.005", "sleep:1", "say", "stop2"}),
             server.folder().path()));
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["prefer"], "0");
    EXPECT_EQ(end["route"], "(not said)") << "it is not opened anew";
    EXPECT_NEAR(std::stod(end["outputLatency"]), 0.025, 0.001);
}

TEST(PlayingOnPulse, AForkLeavesTheDeviceToTheParent) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    const ProgramEnd end = runProgram(
        kept(devicePlayer(server.environment(), "cubeb",
                          {"duration:0.08", "start", "sleep:0.3", "fork:callback", "end", "stop"}),
             server.folder().path()));
    ASSERT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["childIsThere"], "1");
    EXPECT_EQ(joined(differences(devicePlayerNoise(), recording->finish().trimmed())), "");
}

TEST(PlayingOnPulse, TheChildOfAForkHasADeviceOfItsOwn) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer ends a forked child that starts a thread";
#endif
    const PulseServer server(devicePlayerFormat());
    const ProgramEnd end = runProgram(devicePlayer(
        server.environment(), "cubeb", {"start", "sleep:0.3", "fork", "sleep:0.3", "say", "stop"}));
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["child"], "0");
}

TEST(PlayingOnPipeWire, EveryFrameArrivesFromTheFirstToTheLast) {
    const PipeWireServer server;
    const auto recording = server.record();
    const ProgramEnd end = runProgram(
        kept(devicePlayer(server.environment(), "cubeb", {"duration:0.08", "start", "end", "stop"}),
             server.folder().path()));
    ASSERT_EQ(end["done"], "1") << end.text();
    const Sound heard = recording->finish().trimmed();
    ASSERT_EQ(heard.frames(), devicePlayerNoise().frames());
    EXPECT_LT(largestDifference(devicePlayerNoise(), heard), 2.0 / 32768);
}

/// Amplitude in the middle one of pieces of 50 ms: a busy machine puts silence between some.
double usualAmplitude(const Sound& sound, double hertz) {
    const std::size_t piece = static_cast<std::size_t>(sound.format.rate) / 20;
    std::vector<double> all;
    for (std::size_t at = 0; at + piece <= sound.frames(); at += piece) {
        all.push_back(amplitudeOf(sound.part(at, piece), hertz));
    }
    std::sort(all.begin(), all.end());
    return all.empty() ? 0 : all[all.size() / 2];
}

TEST(PlayingOnPulse, TheExampleProgramIsHeard) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    const TemporaryFolder sounds;
    ASSERT_TRUE(makeGameSounds(sounds));
    Environment environment = server.environment();
    environment["TQ_AUDIO_DEVICE"] = "cubeb";
    const ProgramEnd end = runProgram(
        {.arguments = {TQ_GAME_HOST, "--quiet", "--seconds", "3", "--sounds", sounds.file("")},
         .environment = environment});
    ASSERT_EQ(end.code, 0) << end.text();
    const Sound heard = recording->finish().trimmed();
    const auto rate = static_cast<std::size_t>(heard.format.rate);
    ASSERT_GT(heard.frames(), 5 * rate / 2);
    const Sound middle = heard.part(rate / 2, rate);
    EXPECT_GT(usualAmplitude(middle, 441), 0.1) << "its music";
    EXPECT_GT(usualAmplitude(middle, 3150), 0.1) << "its voice";
    EXPECT_LT(usualAmplitude(middle, 2300), 0.01) << "nothing else";
    EXPECT_GT(usualAmplitude(heard.part(heard.frames() - rate, rate / 2), 441), 0.1)
        << "to its end";
}

TEST(Automatic, IsTheServerThatAnswers) {
    const PulseServer server(devicePlayerFormat());
    const auto recording = server.record();
    const ProgramEnd end = runProgram(
        kept(devicePlayer(server.environment(), "auto", {"duration:0.08", "start", "end", "stop"}),
             server.folder().path()));
    EXPECT_EQ(end.errors, "");
    EXPECT_EQ(joined(differences(devicePlayerNoise(), recording->finish().trimmed())), "");
}

TEST(Automatic, WithoutAServerIsTheNullDeviceAndOneLine) {
    const TemporaryFolder folder;
    const ProgramEnd end = runProgram(devicePlayer(
        withoutServers(folder), "auto", {"say", "start", "end", "stop", "start", "stop"}));
    EXPECT_EQ(end["done"], "1");
    EXPECT_EQ(end["slice"], "0.010667");
    EXPECT_LT(std::stod(end["startSeconds"]), 1);
    EXPECT_EQ(end.errors, "TQ_AUDIO_DEVICE=auto: no sound server or card answers, using null\n");
}

TEST(Automatic, AServerThatDoesNotAnswerIsWaitedForASecond) {
    const PulseServer server(devicePlayerFormat());
    server.freeze();
    const ProgramEnd end =
        runProgram(devicePlayer(server.environment(), "auto", {"start", "end", "stop"}));
    server.thaw();
    EXPECT_EQ(end["done"], "1");
    EXPECT_LT(std::stod(end["startSeconds"]), 1.5);
    EXPECT_EQ(end.errors, "TQ_AUDIO_DEVICE=auto: no sound server or card answers, using null\n");
}

}  // namespace
