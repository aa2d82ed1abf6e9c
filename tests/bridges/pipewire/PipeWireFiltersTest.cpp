#include "bridges/programs/PortPlayers.h"

// Programs that play through filters of PipeWire: what their ports play is heard as bare, and is
// their track.

namespace programruns {
namespace {

using tqtest::largestDifference;
using tqtest::Sound;

/// The monitor is heard with 16 bits.
constexpr double kMonitorRounding = 2.0 / 32768;

struct PipeWireFiltersTest : PortPlayers<tqtest::PipeWireServer> {
    PipeWireFiltersTest() : PortPlayers(TQ_TEST_PIPEWIRE_FILTER_PLAYER, kMonitorRounding) {}
};

TEST_F(PipeWireFiltersTest, WhatItPlaysIsHeardAsBareAndIsTheTrack) {
    const ProgramRun run = expectWhole({});
    ASSERT_EQ(run.tracks.size(), 1U);
    EXPECT_NE(run.tracks.begin()->first.find("filterplayer"), std::string::npos)
        << run.tracks.begin()->first;
}

TEST_F(PipeWireFiltersTest, AFilterWithItsOwnConnectionIsRecordedAsWell) {
    expectWhole({"simple"});
}

TEST_F(PipeWireFiltersTest, BuffersThatAreQueuedAreRecordedAsWell) {
    expectWhole({"queue"});
}

TEST_F(PipeWireFiltersTest, APortThatIsLeftOutInEverySecondCycleIsSilentThen) {
    const Sound noise = tqtest::markedNoise(kFloatStereo, 48000);
    const ProgramRun run = runRecorded(output_, player(noise, {"gaps"}));
    ASSERT_EQ(run.tracks.size(), 1U) << run.end.text();
    const Sound track = run.tracks.begin()->second.trimmed();
    ASSERT_EQ(track.frames(), noise.frames());
    EXPECT_LE(largestDifference(run.heard, track), kMonitorRounding);
    std::size_t silent = 0;
    for (std::size_t frame = 0; frame < track.frames(); ++frame) {
        silent += track.value(frame, 1) == 0 ? 1 : 0;
    }
    EXPECT_GT(silent, noise.frames() / 3);
}

TEST_F(PipeWireFiltersTest, DuckingIsHeardInFullFromTheFirstFrame) {
    expectDucked();
}

}  // namespace
}  // namespace programruns
