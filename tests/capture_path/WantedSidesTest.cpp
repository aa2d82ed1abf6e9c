#include "RenderFixture.h"

// Listeners that come, leave and come back, while another keeps the capture going.

namespace {

using testing::Each;

struct WantedSides : RenderCallbacks {
    std::shared_ptr<CaptureListener> guest;

    void comes(std::uint64_t mask) {
        guest = std::make_shared<CaptureListener>(mask);
        collect().startAudioStreamCollect(guest);
        drainRecorder();
    }
    void leaves() {
        collect().stopAudioStreamCollect(guest);
        drainRecorder();
    }
    void TearDown() override {
        leaves();
        RenderCallbacks::TearDown();
    }
    void setLevel(std::int16_t sample) { sound().value = sample / 32767.0; }
};

TEST_F(WantedSides, AListenerOfTracksThatComesBackHearsNothingFromBeforeHeLeft) {
    setLevel(1000);
    capture(1);
    comes(2);
    slices(3);
    // What piles up while nothing is read is there when he leaves.
    stopPrivateGraph();
    slices(4);
    ASSERT_GE(object().getRingBufferSize(YES), 4 * kSliceBytes);
    leaves();
    startPrivateGraph();
    slices(2);
    EXPECT_EQ(object().getRingBufferSize(YES), 0U);
    setLevel(2000);
    comes(2);
    slices(3);
    const auto posts = guest->posts();
    ASSERT_FALSE(posts.empty());
    for (const auto& block : posts) {
        EXPECT_THAT(block.samples(), Each(2000));
    }
}

TEST_F(WantedSides, AListenerOfTheMixThatComesBackHearsNothingFromBeforeHeLeft) {
    setLevel(1000);
    capture(2);
    comes(1);
    slices(3);
    stopPrivateGraph();
    slices(4);
    ASSERT_GE(object().getRingBufferSize(NO), 4 * kSliceBytes);
    leaves();
    startPrivateGraph();
    slices(2);
    EXPECT_EQ(object().getRingBufferSize(NO), 0U);
    setLevel(2000);
    comes(1);
    slices(3);
    const auto mixes = guest->mixes();
    ASSERT_FALSE(mixes.empty());
    for (const auto& block : mixes) {
        EXPECT_THAT(block.samples(), Each(2000));
    }
}

TEST_F(WantedSides, TheSideThatIsStillWantedLosesNothing) {
    sound().isRising = true;
    sound().value = 0;
    capture(1);
    comes(2);
    slices(3);
    leaves();
    slices(3);
    const auto mixes = listener->mixes();
    ASSERT_GE(mixes.size(), 6U);
    for (std::size_t i = 1; i < mixes.size(); ++i) {
        EXPECT_EQ(mixes[i].samples()[0], mixes[i - 1].samples()[0] + 1) << i;
    }
}

}  // namespace
