// What arrives from one real host, on the device that plays into nothing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

using End = RecordingResult::End;

TEST_F(Session, AHostIsRecordedToItsEnd) {
    const RecordingResult result = record({kHost, "tone", "1"});
    EXPECT_EQ(result.end, End::kHostEnded) << result.message;
    EXPECT_EQ(result.hostExitCode, 0);
    EXPECT_EQ(sink.finishes, 1);
    ASSERT_EQ(sink.processes.size(), 1U);
    const auto& seen = sink.only();
    EXPECT_EQ(seen.process.name, "recorded_host");
    EXPECT_TRUE(seen.process.isCommand);
    ASSERT_TRUE(seen.streams.contains(0));
    const auto& mix = seen.streams.at(0);
    EXPECT_EQ(mix.format, (BlockFormat{44100, 2, 16, false}));
    EXPECT_GT(mix.seconds(), 0.9);
    EXPECT_TRUE(seen.facts.hooksInstalled);
    EXPECT_EQ(seen.facts.unitsCreated, 1U);
    EXPECT_EQ(seen.facts.unitsStarted, 1U);
    EXPECT_GT(seen.facts.blocksWithSound, 0U);
    EXPECT_TRUE(seen.ended);
}

TEST_F(Session, TheMixHoldsTheHostsTone) {
    record({kHost, "tone", "1"});
    ASSERT_TRUE(sink.only().streams.contains(0));
    const auto samples = sink.only().streams.at(0).samples(0);
    ASSERT_GT(samples.size(), 35000U);
    // From the middle: the mix runs before and after the unit does.
    const std::vector<double> middle(samples.begin() + 15000, samples.begin() + 30000);
    EXPECT_NEAR(amplitudeAt(middle, 44100, 700), 0.5, 0.03);
}

TEST_F(Session, ATrackComesInterleavedInItsOwnFormatWithItsUnitsName) {
    record({kHost, "tone", "1"});
    ASSERT_TRUE(sink.only().streams.contains(1));
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.format, (BlockFormat{48000, 2, 32, true}));
    EXPECT_EQ(track.unit, "unit-1");
    EXPECT_GT(track.seconds(), 0.9);
    const auto left = track.samples(0);
    const auto right = track.samples(1);
    EXPECT_EQ(left, right);
    EXPECT_NEAR(amplitudeAt(left, 48000, 700), 0.5, 0.01);
}

TEST_F(Session, InterleavedIntegersComeAsTheyAre) {
    record({kHost, "short", "0.5"});
    ASSERT_TRUE(sink.only().streams.contains(1));
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.format, (BlockFormat{48000, 2, 16, false}));
    EXPECT_NEAR(amplitudeAt(track.samples(1), 48000, 700), 0.5, 0.01);
}

TEST_F(Session, AGraphsTrackBearsTheGraphsName) {
    record({kHost, "graph", "0.5"});
    ASSERT_TRUE(sink.only().streams.contains(1));
    EXPECT_EQ(sink.only().streams.at(1).unit, "graph-1");
    EXPECT_EQ(sink.only().facts.unitsStarted, 1U);
}

TEST_F(Session, EventsAndNumbersArrive) {
    record({kHost, "tone", "1"});
    const auto& seen = sink.only();
    EXPECT_THAT(seen.events, testing::Contains(testing::Field(
                                 &Event::message, testing::HasSubstr("audio unit start: 1"))));
    for (const Event& event : seen.events) {
        EXPECT_GT(event.microseconds, 0U);
    }
    ASSERT_EQ(seen.numbers.size(), 1U);
    EXPECT_EQ(seen.numbers.front().track, 1);
    EXPECT_EQ(seen.numbers.front().format.sampleRate, 48000);
    EXPECT_EQ(seen.numbers.front().format.channels, 2U);
    EXPECT_GT(sink.ticks, 3);
    EXPECT_TRUE(seen.log.empty()) << "nobody has asked for it";
}

TEST_F(Session, TheLogArrivesWhenItIsWanted) {
    options.verbose = true;
    record({kHost, "tone", "0.2"});
    EXPECT_THAT(sink.only().log,
                testing::Contains(testing::AllOf(
                    testing::Field(&LogLine::level, 2),
                    testing::Field(&LogLine::function, "Record_unit_AudioOutputUnitStart"),
                    testing::Field(&LogLine::text, testing::HasSubstr("AudioOutputUnitStart")))));
}

TEST_F(Session, TheExitCodeIsTheHosts) {
    EXPECT_EQ(record({kHost, "exit", "7"}).hostExitCode, 7);
    EXPECT_EQ(sink.processes.size(), 1U) << "a host that plays nothing is known as well";
}

}  // namespace
