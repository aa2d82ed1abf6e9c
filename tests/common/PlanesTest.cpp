#include "common/Planes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

namespace {

using tqcommon::AlignedBytes;
using tqcommon::Planes;

TEST(Planes, BeginSilentAndOnCacheLinesOfTheirOwn) {
    Planes planes(3, 17);
    const auto view = planes.view();
    EXPECT_EQ(view.channels(), 3U);
    EXPECT_EQ(view.frames(), 17U);
    for (std::uint32_t channel = 0; channel < 3; ++channel) {
        const float* const plane = view.plane(channel);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(plane) % AlignedBytes::kLine, 0U);
        EXPECT_EQ(std::count(plane, plane + 17, 0.0F), 17);
    }
}

TEST(Planes, ShowNoMoreFramesThanAsked) {
    Planes planes(2, 64);
    EXPECT_EQ(planes.view(10).frames(), 10U);
    EXPECT_EQ(planes.view(10).plane(1), planes.view().plane(1));
}

TEST(Planes, MayHaveNoChannels) {
    Planes planes(0, 64);
    EXPECT_EQ(planes.view().channels(), 0U);
}

}  // namespace
