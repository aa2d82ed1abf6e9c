#include "bridges/core/Planar.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace tq::bridges {
namespace {

using Bytes = std::vector<unsigned char>;

class APlanarBlock : public testing::TestWithParam<unsigned> {};

TEST_P(APlanarBlock, IsInterleavedSampleBySampleAndComesBack) {
    const unsigned bytes = GetParam();
    constexpr std::size_t kFrames = 29;
    constexpr std::size_t kChannels = 3;
    std::vector<Bytes> planes(kChannels, Bytes(kFrames * bytes));
    unsigned char value = 0;
    for (Bytes& plane : planes) {
        std::iota(plane.begin(), plane.end(), value);
        value = static_cast<unsigned char>(value + 85);
    }
    const std::vector<const void*> from{planes[0].data(), planes[1].data(), planes[2].data()};
    Bytes frames(kFrames * kChannels * bytes + 1, 0xEE);
    interleave(from, bytes, kFrames, frames.data());

    Bytes wanted;
    for (std::size_t frame = 0; frame < kFrames; ++frame) {
        for (const Bytes& plane : planes) {
            const auto at = plane.begin() + static_cast<std::ptrdiff_t>(frame * bytes);
            wanted.insert(wanted.end(), at, at + bytes);
        }
    }
    wanted.push_back(0xEE);
    EXPECT_EQ(frames, wanted);

    std::vector<Bytes> back(kChannels, Bytes(kFrames * bytes));
    const std::vector<void*> to{back[0].data(), back[1].data(), back[2].data()};
    deinterleave(frames.data(), bytes, kFrames, to);
    EXPECT_EQ(back, planes);
}

INSTANTIATE_TEST_SUITE_P(OfEverySize, APlanarBlock, testing::Values(1U, 2U, 3U, 4U, 8U));

TEST(Planar, APlaneThatIsNotThereIsSilentAndReceivesNothing) {
    const std::vector<float> left{0.25F, 0.5F};
    std::vector<float> frames(4, 9);
    interleave(std::vector<const void*>{left.data(), nullptr}, sizeof(float), 2, frames.data());
    EXPECT_EQ(frames, (std::vector<float>{0.25F, 0, 0.5F, 0}));

    std::vector<float> right(2);
    frames[1] = 0.75F;
    deinterleave(frames.data(), sizeof(float), 2, std::vector<void*>{nullptr, right.data()});
    EXPECT_EQ(right, (std::vector<float>{0.75F, 0}));
}

}  // namespace
}  // namespace tq::bridges
