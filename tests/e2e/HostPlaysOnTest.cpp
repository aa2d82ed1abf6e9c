#include <gtest/gtest.h>

#include "HostRuns.h"

// The device plays the same with the library in the process as without it, and what it plays is
// recorded.

namespace {

using hostruns::HostRun;
using hostruns::With;

constexpr std::size_t kSlice = 480;

/// Slices `first` to `last`, as they were played, are in that track without a gap.
void expectRecorded(const HostRun& run, int track, std::size_t first, std::size_t last) {
    ASSERT_EQ(run.recorded.count(track), 1U) << run.events;
    EXPECT_TRUE(hostruns::holds(run.recorded.at(track), run.played, first * kSlice,
                                (last - first) * kSlice))
        << "track " << track << " lacks slices " << first << " to " << last;
}

TEST(HostPlaysOn, OnTheOrdinaryRoad) {
    hostruns::expectTheHostPlaysOn("one_unit");
    expectRecorded(hostruns::run("one_unit", With::Recording), 1, 2, 38);
}

TEST(HostPlaysOn, WithAGraphAsTheEighthOutput) {
    hostruns::expectTheHostPlaysOn("eighth_graph");
}

TEST(HostPlaysOn, WithAGraphAsTheEighthOutputWhichIsRecordedOnceANumberIsFree) {
    expectRecorded(hostruns::run("eighth_graph", With::Recording), 1, 24, 60);
}

TEST(HostPlaysOn, AfterAUnitWasUninitialisedAndInitialisedAgain) {
    hostruns::expectTheHostPlaysOn("initialised_again");
}

TEST(HostPlaysOn, AfterAUnitWasInitialisedAgainAndIsRecordedAgain) {
    expectRecorded(hostruns::run("initialised_again", With::Recording), 1, 130, 166);
}

TEST(HostPlaysOn, WithAGraphOpenedWhileEmpty) {
    hostruns::expectTheHostPlaysOn("graph_opened_empty");
}

TEST(HostPlaysOn, WithAGraphOpenedWhileEmptyWhichIsRecorded) {
    const HostRun run = hostruns::run("graph_opened_empty", With::Recording);
    expectRecorded(run, 1, 2, 38);
    expectRecorded(run, 1, 42, 78);
}

TEST(HostPlaysOn, WithAGraphOpenedAgain) {
    hostruns::expectTheHostPlaysOn("graph_opened_again");
}

TEST(HostPlaysOn, WithAGraphOpenedAgainWhichIsRecordedAgain) {
    const HostRun run = hostruns::run("graph_opened_again", With::Recording);
    expectRecorded(run, 1, 2, 38);
    expectRecorded(run, 1, 42, 78);
}

TEST(HostPlaysOn, AfterARefusedCallback) {
    hostruns::expectTheHostPlaysOn("refused_callback");
    expectRecorded(hostruns::run("refused_callback", With::Recording), 1, 2, 58);
}

TEST(HostPlaysOn, WithACallbackReplacedInARunningGraph) {
    hostruns::expectTheHostPlaysOn("replaced_in_running_graph");
    expectRecorded(hostruns::run("replaced_in_running_graph", With::Recording), 1, 2, 78);
}

/// Part `part` of `edits_that_wait`, without what is around its changes.
void expectPartRecorded(const HostRun& run, std::size_t part) {
    expectRecorded(run, 1, part * 20 + 4, part * 20 + 18);
}

TEST(HostPlaysOn, WithCallbacksThatReachTheUnitWithoutAStartOfTheGraph) {
    hostruns::expectTheHostPlaysOn("edits_that_wait");
}

TEST(HostPlaysOn, WithCallbacksThatReachTheUnitWithoutAStartOfTheGraphWhichAreRecorded) {
    const HostRun run = hostruns::run("edits_that_wait", With::Recording);
    for (std::size_t part = 0; part < 26; ++part) {
        expectPartRecorded(run, part);
    }
}

TEST(HostPlaysOn, WithCallbacksThatWaitWhileAnotherEditFails) {
    hostruns::expectTheHostPlaysOn("edits_that_fail");
}

TEST(HostPlaysOn, WithCallbacksThatWaitWhileAnotherEditFailsWhichAreRecorded) {
    const HostRun run = hostruns::run("edits_that_fail", With::Recording);
    for (std::size_t part = 0; part < 13; ++part) {
        expectPartRecorded(run, part);
    }
}

TEST(HostPlaysOn, WhenItPutsACallbackBeforeTheOneThatItReadBack) {
    hostruns::expectTheHostPlaysOn("wrapped_callback");
    expectRecorded(hostruns::run("wrapped_callback", With::Recording), 1, 2, 98);
}

TEST(HostPlaysOn, WhenACallbackComesWhileTheUnitPlays) {
    hostruns::expectTheHostPlaysOn("callback_while_playing");
    expectRecorded(hostruns::run("callback_while_playing", With::Recording), 1, 4, 122);
}

TEST(HostPlaysOn, WhenTheLibraryIsOpenedLate) {
    hostruns::expectPlaysTheSame("opened_late", With::HooksLate);
    hostruns::expectPlaysTheSame("opened_late", With::RecordingLate);
}

TEST(HostPlaysOn, WhenTheLibraryIsOpenedLateAndIsRecordedFromTheNextStartOn) {
    const HostRun run = hostruns::run("opened_late", With::RecordingLate);
    expectRecorded(run, 1, 44, 70);
    expectRecorded(run, 2, 74, 100);
}

TEST(HostPlaysOn, WhenSomethingElseFeedsItsUnits) {
    hostruns::expectTheHostPlaysOn("other_sources");
}

/// A source of `other_sources` plays for 20 slices; those around a change may be missing.
void expectSourceRecorded(const HostRun& run, std::size_t source) {
    expectRecorded(run, 1, source * 20 + 2, source * 20 + 18);
}

struct OtherSources : testing::Test {
    static const HostRun& run() {
        static const HostRun once = hostruns::run("other_sources", With::Recording);
        return once;
    }
};

TEST_F(OtherSources, AConnectionInPlaceOfARunningNodesCallbackIsRecorded) {
    expectSourceRecorded(run(), 0);
    expectSourceRecorded(run(), 1);
}

TEST_F(OtherSources, ACallbackInPlaceOfThatConnectionIsRecorded) {
    expectSourceRecorded(run(), 2);
}

TEST_F(OtherSources, ACallbackOnTheOutputScopeIsRecorded) {
    expectSourceRecorded(run(), 3);
    expectSourceRecorded(run(), 4);
}

}  // namespace
