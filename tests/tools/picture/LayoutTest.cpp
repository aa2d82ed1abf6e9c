#include "picture/Layout.h"

#include <gtest/gtest.h>

namespace tqpicture {
namespace {

Options fullOptions() {
    Options options;
    options.title = "title";
    options.events = {{1, "event"}};
    return options;
}

TEST(Layout, PlotsFollowEachOtherWithoutOverlap) {
    const Layout layout = layOut(5, fullOptions());
    int bottom = layout.eventStrip.y + layout.eventStrip.height;
    ASSERT_EQ(layout.lanes.size(), 5U);
    for (const Lane& lane : layout.lanes) {
        EXPECT_GT(lane.captionBaseline, bottom);
        EXPECT_GT(lane.waveform.y, lane.captionBaseline);
        EXPECT_GT(lane.spectrogram.y, lane.waveform.y + lane.waveform.height);
        bottom = lane.spectrogram.y + lane.spectrogram.height;
    }
    EXPECT_EQ(layout.timeAxisY, bottom);
    EXPECT_GT(layout.height, bottom);
}

TEST(Layout, AllPlotsShareTheTimeAxis) {
    const Layout layout = layOut(3, fullOptions());
    for (const Lane& lane : layout.lanes) {
        EXPECT_EQ(lane.waveform.x, lane.spectrogram.x);
        EXPECT_EQ(lane.waveform.width, lane.spectrogram.width);
        EXPECT_EQ(lane.waveform.x, layout.lanes.front().waveform.x);
        EXPECT_EQ(lane.waveform.width, layout.lanes.front().waveform.width);
    }
    EXPECT_LT(layout.legend.x + layout.legend.width, layout.width);
    EXPECT_GT(layout.legend.x,
              layout.lanes.front().waveform.x + layout.lanes.front().waveform.width);
}

TEST(Layout, TakesNoRoomForTitleAndEventsThatAreNotThere) {
    const Layout with = layOut(1, fullOptions());
    const Layout without = layOut(1, Options{});
    EXPECT_LT(without.height, with.height);
    EXPECT_EQ(without.eventStrip.height, 0);
}

}  // namespace
}  // namespace tqpicture
