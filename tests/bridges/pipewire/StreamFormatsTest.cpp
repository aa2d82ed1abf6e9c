#include "bridges/pipewire/StreamFixture.h"

// Every format that a pw_stream may settle, interleaved and planar.

namespace bridgetests {
namespace {

class StreamFormats : public StreamCalls, public testing::WithParamInterface<spa_audio_format> {
  protected:
    [[nodiscard]] Sound recordedAsItIs() const {
        const std::size_t bytes = sampleAs(GetParam(), 0).size();
        const bool isFloat =
            GetParam() == SPA_AUDIO_FORMAT_F32 || GetParam() == SPA_AUDIO_FORMAT_F32P;
        return recorded(bytes == 4 && !isFloat ? tqtest::Encoding::S32 : tqtest::Encoding::S16);
    }
};

TEST_P(StreamFormats, WhatIsQueuedIsPassedOnAsItIsAndOnTheTrack) {
    settle(GetParam());
    queueNoise();
    const auto planes = planesOf(noise_, GetParam());
    for (std::size_t i = 0; i < planes.size(); ++i) {
        EXPECT_TRUE(stream_->taken[i] == planes[i]) << i;
    }
    end();
    EXPECT_LE(largestDifference(noise_, recordedAsItIs()), kRounding) << recordedAsItIs().frames();
}

TEST_P(StreamFormats, UnderDuckingTheBlockIsChangedInPlaceFromTheFirstOn) {
    duckingBegins(kEndlessAttack);
    settle(GetParam());
    queueNoise();
    end();
    // The track is what is passed on, which is ducked.
    const Sound all = recordedAsItIs();
    ASSERT_EQ(all.frames(), noise_.frames());
    EXPECT_LE(largestDifference(noise_, all, 0.1), kRounding);
    for (std::size_t frame = 0; frame < noise_.frames(); frame += 97) {
        const std::string right = sampleAs(GetParam(), noise_.value(frame, 1) * 0.1);
        const std::size_t planes = isPlanar(GetParam()) ? 2 : 1;
        const std::size_t at = planes == 2 ? frame : 2 * frame + 1;
        const std::string got = stream_->taken[planes - 1].substr(at * right.size(), right.size());
        // Their highest bytes: the lowest ones are rounding.
        EXPECT_NEAR(got[right.size() - 1], right[right.size() - 1], 1) << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(All, StreamFormats,
                         testing::Values(SPA_AUDIO_FORMAT_S16, SPA_AUDIO_FORMAT_S24_32,
                                         SPA_AUDIO_FORMAT_S32, SPA_AUDIO_FORMAT_F32,
                                         SPA_AUDIO_FORMAT_S16P, SPA_AUDIO_FORMAT_S24_32P,
                                         SPA_AUDIO_FORMAT_S32P, SPA_AUDIO_FORMAT_F32P));

}  // namespace
}  // namespace bridgetests
