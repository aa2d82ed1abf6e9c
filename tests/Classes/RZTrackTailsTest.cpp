#include "RZTrackTails.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "BufferLists.h"
#include "RZStreamMixManager.h"
#include "StreamFormats.h"

// What a stopped unit has left for its bus, and the format that the bus has meanwhile.

namespace {

using testing::Each;

constexpr UInt32 kBus = 3;
constexpr UInt32 kFrames = 100;
const AudioStreamBasicDescription kShorts = stream_formats::int16Interleaved(44100, 2);
const AudioStreamBasicDescription kWords = stream_formats::int32Interleaved(44100, 2);

struct RZTrackTailsTest : testing::Test {
    std::shared_ptr<RZReplayAudioUnitObject> obj =
        std::make_shared<RZReplayAudioUnitObject>(nullptr, static_cast<int>(kBus));
    RZTrackTails tails;

    /// A unit of 16-bit samples that has stopped with two blocks of 1000 in its pre ring.
    void SetUp() override {
        obj->setStreamDesc(kShorts);
        obj->startCapture();
        auto rendered = OwnedBufferList::interleaved(2, 2 * kFrames * kShorts.mBytesPerFrame);
        rendered.fill<std::int16_t>({1000});
        obj->tryWriteBuffersFrom(rendered.get(), 2 * kFrames, NO);
        obj->stopCapture();
        tails.endBusFormat(kBus, &kShorts);
        tails.add(obj);
    }
    /// What a pass over the bus, laid out as `format` says, is filled with.
    UInt32 pass(const AudioStreamBasicDescription& format, UInt32 type = RZPCMDataTypePre) {
        list = std::make_unique<OwnedBufferList>(
            OwnedBufferList::interleaved(2, kFrames * format.mBytesPerFrame));
        const RZTrackPass one{*RZStreamMixManager::sharedManager(), kBus, type, kFrames, 0};
        return tails.fillPre(one, *list->get());
    }
    [[nodiscard]] std::uint64_t lost(RZFrameLoss reason) const {
        return obj->account().sums().pre.lost[static_cast<std::size_t>(reason)] -
               before.lost[static_cast<std::size_t>(reason)];
    }

    std::unique_ptr<OwnedBufferList> list;
    RZFrameSideSums before = obj->account().sums().pre;
};

TEST_F(RZTrackTailsTest, FillsTheBusPassByPassAndIsEmptyThen) {
    EXPECT_EQ(pass(kShorts), kFrames);
    EXPECT_THAT(list->copyOf<std::int16_t>(), Each(1000));
    EXPECT_FALSE(tails.isEmpty(kBus));
    EXPECT_EQ(pass(kShorts), kFrames);
    EXPECT_TRUE(tails.isEmpty(kBus));
    EXPECT_TRUE(tails.isEmpty(kBus + 1));
}

TEST_F(RZTrackTailsTest, LosesWhatHasAnotherFormatThanTheBus) {
    tails.beginBusFormat(kBus);
    tails.endBusFormat(kBus, &kWords);
    EXPECT_EQ(pass(kWords), 0U);
    EXPECT_TRUE(tails.isEmpty(kBus));
    EXPECT_EQ(lost(RZFrameLoss::FormatChanged), 2 * kFrames);
    EXPECT_THAT(list->copyOf<std::int32_t>(), Each(0));
}

TEST_F(RZTrackTailsTest, LosesNothingWhileTheBusChangesItsFormat) {
    // The mixer has the new format already, or has still to refuse it.
    tails.beginBusFormat(kBus);
    EXPECT_EQ(pass(kWords), 0U);
    EXPECT_FALSE(tails.isEmpty(kBus));
    tails.endBusFormat(kBus, nullptr);
    EXPECT_EQ(pass(kShorts), kFrames);
    EXPECT_EQ(lost(RZFrameLoss::FormatChanged), 0U);
}

TEST_F(RZTrackTailsTest, LosesAllWhereTheBusIsNotAsItsFormatSays) {
    EXPECT_EQ(pass(kWords), 0U);
    EXPECT_TRUE(tails.isEmpty(kBus));
    EXPECT_EQ(lost(RZFrameLoss::FormatChanged), 2 * kFrames);
}

TEST_F(RZTrackTailsTest, KnowsTheFormatOfEachBusByItself) {
    tails.endBusFormat(kBus + 1, &kWords);
    EXPECT_EQ(pass(kShorts), kFrames);
    EXPECT_THAT(list->copyOf<std::int16_t>(), Each(1000));
}

TEST_F(RZTrackTailsTest, LosesWhatTheMixersListenersDoNotWant) {
    EXPECT_EQ(pass(kShorts, RZPCMDataTypePost), 0U);
    EXPECT_TRUE(tails.isEmpty(kBus));
    EXPECT_EQ(lost(RZFrameLoss::NotWanted), 2 * kFrames);
}

TEST_F(RZTrackTailsTest, TakesNoBusBeyondTheMixers) {
    tails.beginBusFormat(RZTrackTails::kBuses);
    tails.endBusFormat(RZTrackTails::kBuses, &kWords);
    EXPECT_TRUE(tails.isEmpty(RZTrackTails::kBuses));
    EXPECT_EQ(pass(kShorts), kFrames);
}

}  // namespace
