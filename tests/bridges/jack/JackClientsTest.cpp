#include <algorithm>
#include <cmath>

#include "bridges/programs/PortPlayers.h"
#include "support/servers/JackServer.h"

// Programs that play through JACK: what their ports play is heard as bare, and is their track.

namespace programruns {
namespace {

using tqtest::Sound;

struct JackClientsTest : PortPlayers<tqtest::JackServer> {
    JackClientsTest() : PortPlayers(TQ_TEST_JACK_PLAYER, 0) {}
};

TEST_F(JackClientsTest, WhatAProcessCallbackPlaysIsHeardAsBareAndIsTheTrack) {
    const ProgramRun run = expectWhole({});
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("player"), std::string::npos)
        << run.tracks.begin()->first;
}

TEST_F(JackClientsTest, WhatAProcessThreadPlaysIsHeardAsBareAndIsTheTrack) {
    expectWhole({"thread"});
}

TEST_F(JackClientsTest, PortsThatComeAfterTheActivationAreOneTrack) {
    expectWhole({"late"});
}

TEST_F(JackClientsTest, APortThatComesAndGoesLeavesNoHoleInTheOthers) {
    const Sound noise = tqtest::markedNoise(kFloatStereo, 96000);
    const ProgramRun run = runRecorded(output_, player(noise, {"more"}));
    EXPECT_EQ(tqtest::differences(noise, run.heard), std::vector<std::string>{});
    // Two channels, then three, then two again.
    std::size_t frames = 0;
    for (const auto& [name, track] : run.tracks) {
        for (std::size_t frame = 0; frame < track.frames(); ++frame) {
            frames += track.isSilent(frame) ? 0 : 1;
        }
    }
    EXPECT_EQ(frames, noise.frames()) << run.end.text();
}

TEST_F(JackClientsTest, DuckingIsHeardInFullFromTheFirstFrame) {
    expectDucked();
}

/// At the rate of the mix its samples would be there; at 48 kHz it is the same sound.
TEST_F(JackClientsTest, TheMixHoldsAllThatIsPlayed) {
    const Sound tone = tqtest::tone(kFloatStereo, 96000, 441);
    const ProgramRun run = runRecorded(output_, player(tone));
    const Sound mix = run.mix.trimmed();
    EXPECT_NEAR(static_cast<double>(mix.frames()), 2.0 * mix.format.rate, 100) << run.end.text();
    EXPECT_NEAR(tqtest::frequencyOf(mix.part(4410, 79380)), 441, 0.5);
    double power = 0;
    double weakest = 1;
    constexpr std::size_t kPart = 441;
    for (std::size_t at = 0; at + kPart <= mix.frames(); at += kPart) {
        power = 0;
        for (std::size_t frame = at; frame < at + kPart; ++frame) {
            power += mix.value(frame, 0) * mix.value(frame, 0) / kPart;
        }
        weakest = std::min(weakest, std::sqrt(2 * power));
    }
    EXPECT_NEAR(weakest, 0.5, 0.03) << "a hole";
}

TEST_F(JackClientsTest, APortThatGoesInTheProcessCallbackTakesNothingWithIt) {
    const Sound noise = tqtest::markedNoise(kFloatStereo, 96000);
    const ProgramRun run = runRecorded(output_, player(noise, {"leave"}));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    std::size_t frames = 0;
    for (const auto& [name, track] : run.tracks) {
        frames += track.trimmed().frames();
    }
    EXPECT_EQ(frames, noise.frames()) << run.end.text();
}

/// It closes its client in a signal handler.
TEST_F(JackClientsTest, AProgramOfDebianIsOneTrackThatIsCalledAfterIt) {
    const ProgramRun run =
        runRecorded(output_, {"timeout", "--kill-after=20", "4", "jack_simple_client"});
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    EXPECT_NE(run.tracks.begin()->first.find("simple_client"), std::string::npos)
        << run.tracks.begin()->first;
    const Sound track = run.tracks.begin()->second.trimmed();
    EXPECT_GT(track.frames(), 24000U);
    // Its period is 200 frames.
    EXPECT_NEAR(tqtest::frequencyOf(track), 240, 1);
}

/// Clients of JACK on a PipeWire server.
struct PipeWireJackTest : PortPlayers<tqtest::PipeWireJackServer> {
    PipeWireJackTest() : PortPlayers(TQ_TEST_JACK_PLAYER, 0) {}
    /// Its own libjack loads libpipewire, and is seen first.
    static std::vector<std::string> before(const std::vector<std::string>& command) {
        std::vector<std::string> all{"pw-jack"};
        all.insert(all.end(), command.begin(), command.end());
        return all;
    }
};

TEST_F(PipeWireJackTest, IsOneTrackThatIsWhatIsHeard) {
    const Sound noise = tqtest::markedNoise(kFloatStereo, 48000);
    const ProgramRun run = runRecorded(output_, before(player(noise)));
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    EXPECT_EQ(tqtest::differences(noise, run.heard), std::vector<std::string>{});
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    EXPECT_NE(run.tracks.begin()->first.find("jack-1_player"), std::string::npos)
        << run.tracks.begin()->first;
    const Sound track = run.tracks.begin()->second.trimmed();
    EXPECT_LE(tqtest::largestDifference(noise, track), kTrackRounding) << track.frames();
}

}  // namespace
}  // namespace programruns
