#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BufferLists.h"
#include "DataPathFixture.h"
#include "StreamFormats.h"

// Reading as 16-bit integer what was written as float.

using testing::Each;
using testing::IsEmpty;

namespace {

constexpr const char* kConvertedRead =
    "-[RZReplayAudioUnitObject tryReadBuffersTo:numberFrames:isProcessed:]";

/// Float on the writer's side, 16-bit on the reader's.
class RZReplayAudioUnitObjectConversionTest : public DataPathFixture {
  protected:
    void convert(const AudioStreamBasicDescription& from, const AudioStreamBasicDescription& to) {
        obj.setStreamDesc(from);
        obj.setS16FormatStreamDesc(to);
        obj.setNeedFormatToS16(YES);
    }
};
}  // namespace

TEST_F(RZReplayAudioUnitObjectConversionTest, FloatStereoIsReadAsSixteenBitStereo) {
    convert(stream_formats::floatInterleaved(48000, 2), stream_formats::int16Interleaved(48000, 2));
    auto in = OwnedBufferList::interleaved(2, 800);
    in.fill<float>({0.25F, -0.5F, 1.5F, -1.5F});
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto out = OwnedBufferList::interleaved(2, 400);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 100, NO));
    const auto samples = out.copyOf<SInt16>();
    for (std::size_t i = 0; i < samples.size(); i += 4) {
        EXPECT_EQ(8191, samples[i]);
        EXPECT_EQ(-16383, samples[i + 1]);
        EXPECT_EQ(32767, samples[i + 2]);
        EXPECT_EQ(-32767, samples[i + 3]);
    }
    EXPECT_EQ(0U, queued(NO));
}

TEST_F(RZReplayAudioUnitObjectConversionTest, PlanarFloatIsReadPlaneByPlane) {
    AudioStreamBasicDescription to = stream_formats::int16Interleaved(48000, 2);
    to.mBytesPerFrame = 2;
    convert(stream_formats::floatPlanar(48000, 2), to);
    auto in = OwnedBufferList::planar(2, 256);
    in.fill<float>({0.5F}, 0);
    in.fill<float>({-1.0F}, 1);
    obj.tryWriteBuffersFrom(in.get(), 64, YES);
    auto out = OwnedBufferList::planar(2, 128);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 64, YES));
    EXPECT_THAT(out.copyOf<SInt16>(0), Each(16383));
    EXPECT_THAT(out.copyOf<SInt16>(1), Each(-32767));
}

TEST_F(RZReplayAudioUnitObjectConversionTest, UnderrunIsSilent) {
    convert(stream_formats::floatInterleaved(48000, 2), stream_formats::int16Interleaved(48000, 2));
    obj.getOrCreateBufferAt(0);
    auto out = OwnedBufferList::interleaved(2, 400);
    out.fillBytes(9);
    EXPECT_FALSE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_THAT(out.copyOf<SInt16>(), Each(0));
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectConversionTest,
       SixteenBitFormatThatIsNotHalfTheFloatFormatIsReported) {
    AudioStreamBasicDescription to = stream_formats::int16Interleaved(48000, 2);
    to.mBytesPerFrame = 2;
    convert(stream_formats::floatInterleaved(48000, 2), to);
    auto in = OwnedBufferList::interleaved(2, 800);
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto out = OwnedBufferList::interleaved(2, 400);
    out.fillBytes(9);
    EXPECT_FALSE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_THAT(out.copyOf<SInt16>(), Each(0));
    EXPECT_EQ(800U, queued(NO));
    expectOneFault(kConvertedRead, 3, 109,
                   "[buffer] [" + self() +
                       "] [0] read size mis match. record: 800, , target: 200, input: 400");
}

TEST_F(RZReplayAudioUnitObjectConversionTest, ReadersBufferNeedsRoomForTheConvertedBlockOnly) {
    convert(stream_formats::floatInterleaved(48000, 2), stream_formats::int16Interleaved(48000, 2));
    auto in = OwnedBufferList::interleaved(2, 800);
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto small = OwnedBufferList::interleaved(2, 399);
    EXPECT_FALSE(obj.tryReadBuffersTo(small.get(), 100, NO));
    expectOneFault(kConvertedRead, 3, 109,
                   "[buffer] [" + self() +
                       "] [0] read size mis match. record: 800, , target: 400, input: 399");
    auto enough = OwnedBufferList::interleaved(2, 400);
    EXPECT_TRUE(obj.tryReadBuffersTo(enough.get(), 100, NO));
}

TEST_F(RZReplayAudioUnitObjectConversionTest, ConvertedSamplesFollowTheReadersChannelCount) {
    convert(stream_formats::floatInterleaved(48000, 2), stream_formats::int16Interleaved(48000, 2));
    auto in = OwnedBufferList::interleaved(2, 800);
    in.fill<float>({1.0F});
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto out = OwnedBufferList::interleaved(1, 400);
    out.fillBytes(9);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_EQ(32767, out.samples<SInt16>()[99]);
    EXPECT_EQ(0x0909, out.samples<SInt16>()[100]) << "one channel of 100 frames";
}

TEST_F(RZReplayAudioUnitObjectConversionTest, ReaderThatClaimsTooManyChannelsIsNotOverrun) {
    convert(stream_formats::floatInterleaved(48000, 2), stream_formats::int16Interleaved(48000, 2));
    auto in = OwnedBufferList::interleaved(2, 800);
    in.fill<float>({1.0F});
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto out = OwnedBufferList::interleaved(64, 400);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_THAT(out.copyOf<SInt16>(), Each(32767));
}

TEST_F(RZReplayAudioUnitObjectConversionTest, ChannelsThatTheFormatDoesNotHaveAreSilent) {
    convert(stream_formats::floatInterleaved(48000, 2), stream_formats::int16Interleaved(48000, 2));
    auto in = OwnedBufferList::interleaved(2, 800);
    in.fill<float>({1.0F});
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto out = OwnedBufferList::interleaved(4, 800);
    out.fillBytes(9);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_EQ(32767, out.samples<SInt16>()[199]);
    EXPECT_EQ(0, out.samples<SInt16>()[200]);
    EXPECT_EQ(0, out.samples<SInt16>()[399]);
}

TEST_F(RZReplayAudioUnitObjectConversionTest, BigEndianFloatsBecomeBigEndianIntegers) {
    AudioStreamBasicDescription from = stream_formats::floatInterleaved(48000, 2);
    from.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    AudioStreamBasicDescription to = stream_formats::int16Interleaved(48000, 2);
    to.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    convert(from, to);
    // 0.5, -1.0, 0.25 and 1.0 in their byte order.
    std::array<std::uint8_t, 16> rendered{0x3f, 0,    0, 0, 0xbf, 0x80, 0, 0,
                                          0x3e, 0x80, 0, 0, 0x3f, 0x80, 0, 0};
    AudioBufferList list{1, {{2, sizeof rendered, rendered.data()}}};
    obj.tryWriteBuffersFrom(&list, 2, NO);
    std::array<std::uint8_t, 8> read{};
    AudioBufferList target{1, {{2, sizeof read, read.data()}}};
    ASSERT_TRUE(obj.tryReadBuffersTo(&target, 2, NO));
    EXPECT_THAT(read, testing::ElementsAre(0x3f, 0xff, 0x80, 0x01, 0x1f, 0xff, 0x7f, 0xff));
}
