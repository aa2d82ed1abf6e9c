#include "common/AudioView.h"

#include <gtest/gtest.h>

#include <array>
#include <type_traits>
#include <vector>

namespace {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

static_assert(std::is_trivially_copyable_v<AudioView>);
static_assert(std::is_convertible_v<AudioView, ConstAudioView>);
static_assert(!std::is_convertible_v<ConstAudioView, AudioView>);

TEST(AudioView, APlanarOneFindsEachChannelByItsStride) {
    std::array<float, 8> samples{1, 2, 3, 0, 10, 20, 30, 0};
    const AudioView view(samples.data(), 2, 3, 4);
    EXPECT_TRUE(view.isPlanar());
    EXPECT_EQ(view.plane(1), samples.data() + 4);
    EXPECT_EQ(view.at(0, 2), 3);
    EXPECT_EQ(view.at(1, 2), 30);
}

TEST(AudioView, AnInterleavedOneFindsTheSameSamplesSideBySide) {
    std::array<float, 6> samples{1, 10, 2, 20, 3, 30};
    const auto view = AudioView::interleaved(samples.data(), 2, 3);
    EXPECT_FALSE(view.isPlanar());
    EXPECT_EQ(view.at(0, 2), 3);
    EXPECT_EQ(view.at(1, 0), 10);
}

TEST(AudioView, OneInterleavedChannelIsAPlane) {
    std::array<float, 3> samples{1, 2, 3};
    const auto view = AudioView::interleaved(samples.data(), 1, 3);
    EXPECT_TRUE(view.isPlanar());
    EXPECT_EQ(view.plane(0), samples.data());
}

TEST(AudioView, APartOfOneCountsFromItsOwnFirstFrame) {
    std::array<float, 8> samples{1, 2, 3, 4, 10, 20, 30, 40};
    const ConstAudioView part = ConstAudioView(samples.data(), 2, 4, 4).slice(1, 2).slice(1, 1);
    EXPECT_EQ(part.frames(), 1U);
    EXPECT_EQ(part.channels(), 2U);
    EXPECT_EQ(part.at(0, 0), 3);
    EXPECT_EQ(part.at(1, 0), 30);
}

TEST(AudioView, PlanesMayLieInAnyOrder) {
    std::array<float, 4> samples{10, 20, 1, 2};
    const ConstAudioView view(samples.data() + 2, 2, 2, -2);
    EXPECT_EQ(view.at(0, 1), 2);
    EXPECT_EQ(view.at(1, 1), 20);
}

TEST(AudioView, SilenceTouchesNothingBesideTheView) {
    std::array<float, 8> planar;
    planar.fill(7);
    silence(AudioView(planar.data(), 2, 4, 4).slice(1, 2));
    EXPECT_EQ(planar, (std::array<float, 8>{7, 0, 0, 7, 7, 0, 0, 7}));
    std::array<float, 8> interleaved;
    interleaved.fill(7);
    silence(AudioView::interleaved(interleaved.data(), 2, 4).slice(1, 2));
    EXPECT_EQ(interleaved, (std::array<float, 8>{7, 7, 0, 0, 0, 0, 7, 7}));
}

TEST(AudioView, CopiesBetweenLayouts) {
    const std::array<float, 6> from{1, 10, 2, 20, 3, 30};
    std::array<float, 6> planar{};
    std::array<float, 6> back{};
    const AudioView planes(planar.data(), 2, 3, 3);
    copy(ConstAudioView::interleaved(from.data(), 2, 3), planes);
    EXPECT_EQ(planar, (std::array<float, 6>{1, 2, 3, 10, 20, 30}));
    copy(planes, AudioView::interleaved(back.data(), 2, 3));
    EXPECT_EQ(back, from);
}

TEST(AudioView, CopiesPlanes) {
    const std::array<float, 4> from{1, 2, 10, 20};
    std::array<float, 6> to{};
    copy(ConstAudioView(from.data(), 2, 2, 2), AudioView(to.data(), 2, 2, 3));
    EXPECT_EQ(to, (std::array<float, 6>{1, 2, 0, 10, 20, 0}));
}

}  // namespace
