#include <gtest/gtest.h>

#include <string>

#include "SampleBuffers.h"

static_assert(kCMBlockBufferStructureAllocationFailedErr == -12700);
static_assert(kCMBlockBufferBlockAllocationFailedErr == -12701);
static_assert(kCMBlockBufferBadOffsetParameterErr == -12703);
static_assert(kCMBlockBufferBadLengthParameterErr == -12704);

namespace {

/// Eight bytes, 0 to 7, as the data of a sample buffer.
class BlockBuffer : public testing::Test {
  protected:
    void SetUp() override {
        const auto format = describe(pcmFormat(2, 2, true));
        samples_ = makeSamples(format.get(), 2);
        ASSERT_EQ(attach(samples_.get(), List(1, 8).get()), noErr);
        block_ = CMSampleBufferGetDataBuffer(samples_.get());
        ASSERT_NE(block_, nullptr);
    }

    Held<CMSampleBufferRef> samples_;
    CMBlockBufferRef block_ = nullptr;
};

}  // namespace

TEST_F(BlockBuffer, SaysItsLength) {
    EXPECT_EQ(CMBlockBufferGetDataLength(block_), 8U);
    EXPECT_EQ(CMBlockBufferGetDataLength(nullptr), 0U);
}

TEST_F(BlockBuffer, CopiesAnyPartOut) {
    char bytes[8] = {};
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 0, 8, bytes), kCMBlockBufferNoErr);
    EXPECT_EQ(std::string(bytes, 8), std::string("\0\1\2\3\4\5\6\7", 8));
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 6, 2, bytes), kCMBlockBufferNoErr);
    EXPECT_EQ(std::string(bytes, 3), std::string("\6\7\2", 3));
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 8, 0, bytes), kCMBlockBufferNoErr);
}

TEST_F(BlockBuffer, CopiesNothingBeyondItsEnd) {
    char bytes[16] = "before";
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 9, 0, bytes), kCMBlockBufferBadOffsetParameterErr);
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 4, 5, bytes), kCMBlockBufferBadLengthParameterErr);
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 4, SIZE_MAX, bytes),
              kCMBlockBufferBadLengthParameterErr);
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block_, 0, 8, nullptr),
              kCMBlockBufferBadPointerParameterErr);
    EXPECT_STREQ(bytes, "before");
}

TEST_F(BlockBuffer, PointsAtItsMemory) {
    size_t rest = 0;
    size_t total = 0;
    char* data = nullptr;
    EXPECT_EQ(CMBlockBufferGetDataPointer(block_, 3, &rest, &total, &data), kCMBlockBufferNoErr);
    EXPECT_EQ(rest, 5U);
    EXPECT_EQ(total, 8U);
    EXPECT_EQ(data[0], 3);
    EXPECT_EQ(CMBlockBufferGetDataPointer(block_, 0, nullptr, nullptr, nullptr),
              kCMBlockBufferNoErr);
    EXPECT_EQ(CMBlockBufferGetDataPointer(block_, 8, &rest, nullptr, nullptr),
              kCMBlockBufferBadOffsetParameterErr);
    EXPECT_EQ(rest, 5U);
}

TEST_F(BlockBuffer, OutlivesTheSampleBufferWhenRetained) {
    CFRetain(block_);
    samples_ = Held<CMSampleBufferRef>();
    EXPECT_EQ(CFGetRetainCount(block_), 1);
    EXPECT_EQ(CMBlockBufferGetDataLength(block_), 8U);
    CFRelease(block_);
    EXPECT_EQ(CMBlockBufferGetDataLength(block_), 0U);
}

TEST_F(BlockBuffer, HandlesOfOtherThingsAreRefused) {
    char bytes[8] = {};
    const auto other = reinterpret_cast<CMBlockBufferRef>(samples_.get());
    for (const CMBlockBufferRef wrong :
         {CMBlockBufferRef{nullptr}, other, reinterpret_cast<CMBlockBufferRef>(bytes)}) {
        EXPECT_EQ(CMBlockBufferGetDataLength(wrong), 0U);
        EXPECT_EQ(CMBlockBufferCopyDataBytes(wrong, 0, 1, bytes),
                  kCMBlockBufferBadPointerParameterErr);
        EXPECT_EQ(CMBlockBufferGetDataPointer(wrong, 0, nullptr, nullptr, nullptr),
                  kCMBlockBufferBadPointerParameterErr);
    }
}
