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
