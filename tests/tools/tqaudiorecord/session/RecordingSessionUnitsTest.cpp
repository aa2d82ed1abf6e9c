// Units that come and go.

#include <TQAudioRecord/tq_capture.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "SessionFixture.h"

namespace {

using namespace tqrecorder;

TEST_F(Session, UnitsThatAreDisposedOfInitialisedAreAllRecorded) {
    std::set<std::string> units;
    sink.onBlock = [&units](const Process&, const Block& block) {
        if (block.track != 0) {
            EXPECT_EQ(block.track, 1);
            units.emplace(block.unit);
        }
    };
    EXPECT_EQ(record({kHost, "disposing", "100"}).hostExitCode, 0);
    EXPECT_EQ(units.size(), 100U);
}

TEST_F(Session, UnitsThatAreMadeAnewTakeNoPlaceOfAUnitThatPlaysOn) {
    std::map<std::uint32_t, std::set<std::string>> unitsOfTracks;
    std::map<std::string, std::uint64_t> lastBlocks;
    sink.onBlock = [&](const Process&, const Block& block) {
        if (block.track != 0) {
            unitsOfTracks[static_cast<std::uint32_t>(block.track)].emplace(block.unit);
            lastBlocks[std::string(block.unit)] = block.microseconds;
        }
    };
    EXPECT_EQ(record({kHost, "remaking", "5"}).hostExitCode, 0);
    EXPECT_EQ(unitsOfTracks[1], std::set<std::string>{"unit-1"});
    EXPECT_EQ(unitsOfTracks[2], std::set<std::string>{"unit-2"});
    EXPECT_EQ(unitsOfTracks[3].size(), 5U);
    EXPECT_GE(lastBlocks["unit-1"], lastBlocks["unit-7"]) << "it is recorded to its end";
}

TEST_F(Session, TheAccountOfWhatAProgramRenderedCloses) {
    EXPECT_EQ(record({kHost, "disposing", "30"}).hostExitCode, 0);
    const TrackFrames& frames = sink.only().facts.frames[1];
    EXPECT_GT(frames.rendered, 0U);
    for (const FrameSide* const side : {&frames.mix, &frames.track}) {
        EXPECT_EQ(frames.rendered,
                  side->delivered + side->waiting +
                      std::accumulate(side->lost.begin(), side->lost.end(), std::uint64_t{0}));
    }
    const RememberingSink::Stream& track = sink.only().streams.at(1);
    // The last of them may come between the count and the end.
    EXPECT_GE(track.frames(), frames.track.delivered);
    EXPECT_LE(track.frames(), frames.track.delivered + frames.track.waiting);
}

TEST_F(Session, ASoundOfTwoBlocksRightBeforeTheProgramsEndIsRecorded) {
    EXPECT_EQ(record({kHost, "tone", "0.02"}).hostExitCode, 0);
    const TrackFrames& frames = sink.only().facts.frames[1];
    // A block may be rendered between the notice of the stop and the stop itself.
    const std::uint64_t captured = frames.rendered - frames.mix.lost[TQ_FRAMES_NOT_CAPTURING];
    EXPECT_GE(captured, 512U);
    EXPECT_EQ(frames.mix.delivered, captured);
    EXPECT_EQ(sink.only().streams.at(1).frames(), captured);
    EXPECT_GT(sink.only().facts.blocksWithSound, 0U);
}

TEST_F(Session, AGraphThatIsUpdatedAllTheTimeIsRecordedWithoutAHole) {
    EXPECT_EQ(record({kHost, "updating", "1"}).hostExitCode, 0);
    const TrackFrames& frames = sink.only().facts.frames[1];
    EXPECT_GT(frames.rendered, 48000U);
    for (const FrameSide* const side : {&frames.mix, &frames.track}) {
        EXPECT_EQ(side->lost[TQ_FRAMES_FORMAT_CHANGED], 0U);
        EXPECT_EQ(side->lost[TQ_FRAMES_RING_FULL], 0U);
    }
    const auto& track = sink.only().streams.at(1);
    EXPECT_GE(track.frames(), 47000U);
    EXPECT_NEAR(amplitudeAt(track.samples(0), 48000, 700), 0.5, 0.01);
}

TEST_F(Session, AnEighthUnitIsNamedWhereSevenOthersAreRecorded) {
    EXPECT_EQ(record({kHost, "many", "9"}).hostExitCode, 0);
    const auto& seen = sink.only();
    EXPECT_EQ(seen.streams.size(), 8U) << "the mix and seven tracks";
    EXPECT_EQ(seen.facts.leftOut,
              (std::vector<LeftOutUnit>{{"unit-8", 1U << TQ_UNIT_NO_NUMBER_FREE},
                                        {"unit-9", 1U << TQ_UNIT_NO_NUMBER_FREE}}));
}

TEST_F(Session, TracksOfSwappedSamplesAreTurned) {
    EXPECT_EQ(record({kHost, "swapped", "0.5"}).hostExitCode, 0);
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.format.bitsPerChannel, 16U);
    EXPECT_NEAR(amplitudeAt(track.samples(0), 48000, 700), 0.5, 0.01);
}

TEST_F(Session, TracksOfEightBitsArriveSigned) {
    EXPECT_EQ(record({kHost, "eight", "0.5"}).hostExitCode, 0);
    const auto& track = sink.only().streams.at(1);
    EXPECT_EQ(track.format.bitsPerChannel, 8U);
    int lowest = 0;
    int highest = 0;
    for (const std::byte byte : track.bytes) {
        lowest = std::min(lowest, static_cast<int>(static_cast<std::int8_t>(byte)));
        highest = std::max(highest, static_cast<int>(static_cast<std::int8_t>(byte)));
    }
    EXPECT_EQ(lowest, -64);
    EXPECT_EQ(highest, 64);
}

TEST_F(Session, TracksOfFixedPointArriveAtFullScaleAndAreCutBeyondIt) {
    EXPECT_EQ(record({kHost, "loud", "0.5"}).hostExitCode, 0);
    const auto& track = sink.only().streams.at(1);
    ASSERT_EQ(track.format.bitsPerChannel, 32U);
    std::vector<std::int32_t> samples(track.bytes.size() / 4);
    std::memcpy(samples.data(), track.bytes.data(), samples.size() * 4);
    ASSERT_FALSE(samples.empty());
    EXPECT_EQ(*std::min_element(samples.begin(), samples.end()),
              std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(*std::max_element(samples.begin(), samples.end()),
              std::numeric_limits<std::int32_t>::max());
    // What is too loud does not come out on the other side.
    const double sum = std::accumulate(samples.begin(), samples.end(), 0.0);
    EXPECT_NEAR(sum / static_cast<double>(samples.size()) / 2147483648.0, 0, 0.01);
}

TEST_F(Session, AUnitThatIsLeftOutIsInNeitherMixNorTracks) {
    options.without = {"unit-1"};
    EXPECT_EQ(record({kHost, "tone", "0.5"}).hostExitCode, 0);
    const auto& seen = sink.processes.at(1);
    EXPECT_TRUE(seen.streams.empty());
    ASSERT_EQ(seen.facts.leftOut.size(), 1U);
    EXPECT_EQ(seen.facts.leftOut[0].reasons, 1U << TQ_UNIT_EXCLUDED);
}

TEST_F(Session, AProgramThatIsLeftOutPlaysAndAnotherIsRecorded) {
    options.without = {"other_HOST"};
    EXPECT_EQ(record({kHost, "run", kHost, "tone", "1", "--", kOther, "short", "1"}).hostExitCode,
              0);
    std::vector<std::string> recorded;
    for (const auto& [id, seen] : sink.processes) {
        if (!seen.streams.empty()) {
            recorded.push_back(seen.process.name);
        }
    }
    EXPECT_EQ(recorded, std::vector<std::string>{"recorded_host"});
}

TEST_F(Session, WhereOneNameIsWantedOthersAreNot) {
    options.only = {"other_host"};
    EXPECT_EQ(record({kHost, "run", kHost, "tone", "1", "--", kOther, "short", "1"}).hostExitCode,
              0);
    EXPECT_EQ(sink.only().process.name, "other_host");
    EXPECT_GT(sink.only().facts.blocksWithSound, 0U);
}

}  // namespace
