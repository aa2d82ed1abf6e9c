#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "BufferLists.h"
#include "EventRecorder.h"
#include "LogCapture.h"
#include "RZReplayAudioUnitObject.h"
#include "StreamFormats.h"

// The conversion of samples, and ducking and compression in place.

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Lt;

namespace {

SInt16 converted(float sample) {
    SInt16 out = 0;
    RZReplayAudioUnitObject::convertF32ToS16(&sample, &out, 1);
    return out;
}

}  // namespace

TEST(RZReplayAudioUnitObjectConvertTest, ScalesBy32767AndTruncatesTowardZero) {
    EXPECT_EQ(32767, converted(1.0F));
    EXPECT_EQ(-32767, converted(-1.0F));
    EXPECT_EQ(32766, converted(0.99999F));
    EXPECT_EQ(-32766, converted(-0.99999F));
    EXPECT_EQ(16383, converted(0.5F));
    EXPECT_EQ(-16383, converted(-0.5F));
    EXPECT_EQ(0, converted(0.0F));
    EXPECT_EQ(0, converted(0.00003F));
    EXPECT_EQ(0, converted(-0.00003F));
}

TEST(RZReplayAudioUnitObjectConvertTest, LimitsAreSymmetric) {
    EXPECT_EQ(-32767, converted(-2.0F));
    EXPECT_EQ(32767, converted(2.0F));
    EXPECT_EQ(32767, converted(1.00001F));
    EXPECT_EQ(-32767, converted(-1.00001F));
}

TEST(RZReplayAudioUnitObjectConvertTest, HugeAndSenselessSamplesSaturateOrAreSilent) {
    using Limits = std::numeric_limits<float>;
    EXPECT_EQ(32767, converted(1e9F));
    EXPECT_EQ(-32767, converted(-1e9F));
    EXPECT_EQ(32767, converted(Limits::max()));
    EXPECT_EQ(-32767, converted(Limits::lowest()));
    EXPECT_EQ(32767, converted(Limits::infinity()));
    EXPECT_EQ(-32767, converted(-Limits::infinity()));
    EXPECT_EQ(0, converted(Limits::quiet_NaN()));
    EXPECT_EQ(0, converted(Limits::denorm_min()));
}

TEST(RZReplayAudioUnitObjectConvertTest, EveryStepComesBackFromItsOwnFloat) {
    for (int value = -32767; value <= 32767; ++value) {
        // Half a step further out, so that truncation lands on the step itself.
        const float sample = (static_cast<float>(value) + (value < 0 ? -0.5F : 0.5F)) / 32767.0F;
        ASSERT_EQ(value, converted(value == 0 ? 0.0F : sample));
    }
}

TEST(RZReplayAudioUnitObjectConvertTest, ConvertsExactlyTheLengthGiven) {
    const std::vector<float> in{0.25F, -1.0F, 1.0F};
    std::vector<SInt16> out(4, 99);
    RZReplayAudioUnitObject::convertF32ToS16(in.data(), out.data(), 3);
    EXPECT_THAT(out, ElementsAre(8191, -32767, 32767, 99));
    RZReplayAudioUnitObject::convertF32ToS16(nullptr, nullptr, 0);
}

namespace {

class RZReplayAudioUnitObjectProcessTest : public testing::Test {
  protected:
    void SetUp() override { obj.setCallback(receiver); }
    /// Ducking that is fully down after a few frames.
    void duck() {
        RZReplayVolumeDuckingParam param(YES);
        param.setAttackTime(0.0001F);
        obj.setDuckingParam(&param);
        obj.getOrCreateBufferAt(0);
        obj.getOrCreateBufferAt(1);
        obj.updateDuckingVolume(0.0F, YES);
    }

    LogCapture log;
    const std::shared_ptr<EventRecorder> receiver = std::make_shared<EventRecorder>();
    RZReplayAudioUnitObject obj;
};

}  // namespace

TEST_F(RZReplayAudioUnitObjectProcessTest, SixteenBitIsDuckedInPlace) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    duck();
    auto list = OwnedBufferList::interleaved(2, 4000);
    list.fill<SInt16>({10000});
    obj.processBuffer(list.get(), 1000);
    EXPECT_NEAR(1000, list.samples<SInt16>()[1999], 2);
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectProcessTest, ChannelsOfAFrameGetTheSameGain) {
    obj.setStreamDesc(stream_formats::floatInterleaved(44100, 2));
    const RZReplayVolumeDuckingParam param(YES);
    obj.setDuckingParam(&param);
    obj.getOrCreateBufferAt(0);
    obj.updateDuckingVolume(0.0F, YES);
    auto list = OwnedBufferList::interleaved(2, 800);
    list.fill<float>({0.5F});
    obj.processBuffer(list.get(), 100);
    const auto samples = list.copyOf<float>();
    for (std::size_t i = 0; i + 3 < samples.size(); i += 2) {
        EXPECT_EQ(samples[i], samples[i + 1]);
        EXPECT_GT(samples[i + 1], samples[i + 2]) << "on its way down";
    }
}

TEST_F(RZReplayAudioUnitObjectProcessTest, ThirtyTwoBitIntegerIsDuckedInPlace) {
    obj.setStreamDesc(stream_formats::int32Interleaved(44100, 1));
    duck();
    auto list = OwnedBufferList::interleaved(1, 4000);
    list.fill<SInt32>({1000000000});
    obj.processBuffer(list.get(), 1000);
    EXPECT_NEAR(1e8, list.samples<SInt32>()[999], 1e5);
}

TEST_F(RZReplayAudioUnitObjectProcessTest, FloatIsDuckedInPlace) {
    obj.setStreamDesc(stream_formats::floatInterleaved(44100, 1));
    duck();
    auto list = OwnedBufferList::interleaved(1, 4000);
    list.fill<float>({0.5F});
    obj.processBuffer(list.get(), 1000);
    EXPECT_NEAR(0.05F, list.samples<float>()[999], 1e-3F);
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectProcessTest, DoublePrecisionIsLeftAsItIsAndNamed) {
    AudioStreamBasicDescription desc = stream_formats::floatInterleaved(44100, 1);
    desc.mBitsPerChannel = 64;
    desc.mBytesPerFrame = desc.mBytesPerPacket = 8;
    obj.setStreamDesc(desc);
    duck();
    auto list = OwnedBufferList::interleaved(1, 8000);
    list.fill<double>({0.5});
    obj.processBuffer(list.get(), 1000);
    EXPECT_EQ(list.samples<double>()[999], 0.5);
    EXPECT_EQ(receiver->events().size(), 1U);
}

TEST_F(RZReplayAudioUnitObjectProcessTest, EveryBufferOfTheListIsProcessed) {
    AudioStreamBasicDescription desc = stream_formats::floatPlanar(48000, 2);
    desc.mChannelsPerFrame = 1;
    obj.setStreamDesc(desc);
    duck();
    auto list = OwnedBufferList::planar(2, 4000);
    list.fill<float>({0.5F}, 0);
    list.fill<float>({0.25F}, 1);
    obj.processBuffer(list.get(), 1000);
    EXPECT_NEAR(0.05F, list.samples<float>(0)[999], 1e-3F);
    EXPECT_NEAR(0.025F, list.samples<float>(1)[999], 1e-3F);
}

TEST_F(RZReplayAudioUnitObjectProcessTest, BytesOfTheBufferDecideNotTheFrameCount) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    duck();
    for (const UInt32 frames : {0U, 7U, 1000000U}) {
        auto list = OwnedBufferList::interleaved(1, 2000);
        list.fill<SInt16>({10000});
        obj.processBuffer(list.get(), frames);
        EXPECT_NEAR(1000, list.samples<SInt16>()[999], 2);
    }
}

TEST_F(RZReplayAudioUnitObjectProcessTest, RunsWhetherOrNotCapturing) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    duck();
    ASSERT_FALSE(obj.isCapturing());
    auto list = OwnedBufferList::interleaved(1, 2000);
    list.fill<SInt16>({10000});
    obj.processBuffer(list.get(), 1000);
    EXPECT_THAT(list.samples<SInt16>()[999], Lt(2000));
}

TEST_F(RZReplayAudioUnitObjectProcessTest, StreamsRateReachesTheController) {
    obj.setStreamDesc(stream_formats::int16Interleaved(22050.9, 1));
    auto list = OwnedBufferList::interleaved(1, 20);
    obj.processBuffer(list.get(), 10);
    ASSERT_EQ(1U, obj.bufferList().size()) << "the buffer is made on first need";
    EXPECT_EQ(22050, obj.bufferList()[0]->volumeController()->SampleRate());
}

TEST_F(RZReplayAudioUnitObjectProcessTest, WithoutEffectsTheBlockIsUntouched) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 2000);
    list.fillRising<SInt16>(-500, 1);
    const auto before = list.copyOf<SInt16>();
    obj.processBuffer(list.get(), 1000);
    EXPECT_EQ(before, list.copyOf<SInt16>());
}

TEST_F(RZReplayAudioUnitObjectProcessTest, EmptyMissingAndMemorylessListsDoNoHarm) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::planar(0, 0);
    obj.processBuffer(list.get(), 10);
    obj.processBuffer(nullptr, 10);
    EXPECT_THAT(obj.bufferList(), IsEmpty());
    duck();
    auto hollow = OwnedBufferList::interleaved(1, 200);
    hollow.buffer().mData = nullptr;
    obj.processBuffer(hollow.get(), 100);
    EXPECT_THAT(receiver->events(), IsEmpty());
}

namespace {

struct BadFormat {
    const char* name;
    UInt32 flags;
    UInt32 bits;

    friend std::ostream& operator<<(std::ostream& out, const BadFormat& format) {
        return out << format.name;
    }
};

class RZReplayAudioUnitObjectBadFormatTest : public RZReplayAudioUnitObjectProcessTest,
                                             public testing::WithParamInterface<BadFormat> {};

}  // namespace

TEST_P(RZReplayAudioUnitObjectBadFormatTest, IsReportedOnceAndNeverProcessed) {
    AudioStreamBasicDescription desc = stream_formats::int16Interleaved(44100, 2);
    desc.mFormatFlags = GetParam().flags;
    desc.mBitsPerChannel = GetParam().bits;
    obj.setStreamDesc(desc);
    duck();
    log.clear();
    auto list = OwnedBufferList::interleaved(2, 4000);
    list.fillBytes(0x21);
    for (int i = 0; i < 3; ++i) {
        obj.processBuffer(list.get(), 1000);
    }
    EXPECT_THAT(list.copyOf<char>(), Each(0x21));
    const std::string message =
        "[buffer] unsupport pcm format: " + std::to_string(static_cast<int>(GetParam().flags)) +
        ", bisPerChn: " + std::to_string(GetParam().bits) + ", chnPerFrame: 2";
    EXPECT_THAT(receiver->events(), ElementsAre(RecordedEvent{5, 112, message}));
    EXPECT_THAT(log.lines(),
                ElementsAre(IsLogLine("Classes/RZReplayAudioUnitObject",
                                      "-[RZReplayAudioUnitObject processBuffer:numberFrames:]", 4,
                                      message)));
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, RZReplayAudioUnitObjectBadFormatTest,
    testing::Values(BadFormat{"BigEndianFloat", 3, 32}, BadFormat{"BigEndianInteger16", 6, 16},
                    BadFormat{"BigEndianInteger32", 6, 32}, BadFormat{"UnsignedInteger16", 8, 16},
                    BadFormat{"Integer8", 12, 8}, BadFormat{"Integer24", 12, 24},
                    BadFormat{"NoBits", 4, 0}, BadFormat{"AllClear", 0x80000000U, 16}),
    [](const auto& test) { return test.param.name; });

TEST_F(RZReplayAudioUnitObjectProcessTest, BadFormatIsReportedEvenForAnEmptyList) {
    obj.processBuffer(nullptr, 0);
    EXPECT_THAT(receiver->events(),
                ElementsAre(RecordedEvent{
                    5, 112, "[buffer] unsupport pcm format: 0, bisPerChn: 0, chnPerFrame: 0"}));
}
