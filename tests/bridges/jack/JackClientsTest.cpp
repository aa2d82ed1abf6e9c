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

TEST_F(JackClientsTest, DuckingIsHeardInFullBehindItsRamp) {
    expectDucked();
}

}  // namespace
}  // namespace programruns
