#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

#include "SampleBuffers.h"

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

constexpr uint32_t kAligned = kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment;
static_assert(kAligned == 1);

std::vector<unsigned char> dataOf(CMSampleBufferRef buffer) {
    const CMBlockBufferRef block = CMSampleBufferGetDataBuffer(buffer);
    std::vector<unsigned char> bytes(CMBlockBufferGetDataLength(block));
    EXPECT_EQ(CMBlockBufferCopyDataBytes(block, 0, bytes.size(), bytes.data()), noErr);
    return bytes;
}

OSStatus getList(CMSampleBufferRef buffer, size_t* needed, AudioBufferList* list, size_t size,
                 uint32_t flags, CMBlockBufferRef* block) {
    return CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
        buffer, needed, list, size, kCFAllocatorDefault, kCFAllocatorDefault, flags, block);
}

class SampleData : public testing::Test {
  protected:
    const Held<CMFormatDescriptionRef> interleaved_ = describe(pcmFormat(2, 2, true));
    const Held<CMFormatDescriptionRef> planar_ = describe(pcmFormat(2, 4, false));
};

}  // namespace

TEST_F(SampleData, IsCopiedIn) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    {
        List list(1, 8);
        ASSERT_EQ(attach(samples.get(), list.get()), noErr);
    }
    EXPECT_TRUE(CMSampleBufferDataIsReady(samples.get()));
    EXPECT_THAT(dataOf(samples.get()), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(SampleData, OfSeveralBuffersLiesOneAfterTheOther) {
    const auto samples = makeSamples(planar_.get(), 1);
    ASSERT_EQ(attach(samples.get(), List(2, 4).get()), noErr);
    EXPECT_THAT(dataOf(samples.get()), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(SampleData, LiesAtAMultipleOfSixteenBytes) {
    for (const uint32_t flags : {0U, kAligned}) {
        const auto samples = makeSamples(interleaved_.get(), 1024);
        ASSERT_EQ(attach(samples.get(), List(1, 4096).get(), flags), noErr);
        char* data = nullptr;
        ASSERT_EQ(CMBlockBufferGetDataPointer(CMSampleBufferGetDataBuffer(samples.get()), 0,
                                              nullptr, nullptr, &data),
                  noErr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 16, 0U);
    }
}

TEST_F(SampleData, NeedsAnAudioDescription) {
    const auto samples = makeSamples(nullptr, 2);
    EXPECT_EQ(attach(samples.get(), List(1, 8).get()), -12741);
}

TEST_F(SampleData, IsAttachedOnce) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    ASSERT_EQ(attach(samples.get(), List(1, 8).get()), noErr);
    EXPECT_EQ(attach(samples.get(), List(1, 8).get()), -12732);
    EXPECT_THAT(dataOf(samples.get()), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(SampleData, MustNotBeMissing) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    EXPECT_EQ(attach(samples.get(), nullptr), -12731);
    EXPECT_EQ(attach(samples.get(), List(0, 0).get()), -12731);
    List empty(1, 8);
    empty.buffer(0).mData = nullptr;
    EXPECT_EQ(attach(samples.get(), empty.get()), -12731);
    EXPECT_EQ(CMSampleBufferGetDataBuffer(samples.get()), nullptr);
    EXPECT_FALSE(CMSampleBufferDataIsReady(samples.get()));
    EXPECT_EQ(attach(nullptr, List(1, 8).get()), -12731);
}

TEST_F(SampleData, MustBeJustTheSamplesPromised) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    EXPECT_EQ(attach(samples.get(), List(1, 4).get()), -12731);
    EXPECT_EQ(attach(samples.get(), List(1, 12).get()), -12731);
    EXPECT_EQ(attach(samples.get(), List(1, 9).get()), -12731);
    EXPECT_EQ(attach(samples.get(), List(2, 4).get()), -12731);
    const auto planar = makeSamples(planar_.get(), 2);
    EXPECT_EQ(attach(planar.get(), List(1, 8).get()), -12731);
    EXPECT_EQ(attach(planar.get(), List(3, 8).get()), -12731);
    List uneven(2, 8);
    uneven.buffer(1).mDataByteSize = 4;
    EXPECT_EQ(attach(planar.get(), uneven.get()), -12731);
}

TEST_F(SampleData, OfNoSamplesIsMissing) {
    const auto samples = makeSamples(interleaved_.get(), 0);
    List list(1, 8);
    EXPECT_EQ(attach(samples.get(), list.get()), -12731);
    list.buffer(0).mDataByteSize = 0;
    EXPECT_EQ(attach(samples.get(), list.get()), -12731);
}

TEST_F(SampleData, OfAbsurdCountsIsRefused) {
    const auto many = makeSamples(interleaved_.get(), (1L << 62) + 2);
    EXPECT_EQ(attach(many.get(), List(1, 8).get()), -12731);
    const auto wide = describe(pcmFormat(UINT32_MAX, 4, false));
    const auto samples = makeSamples(wide.get(), 1);
    EXPECT_EQ(attach(samples.get(), List(1, 4).get()), -12731);
    const auto none = describe(pcmFormat(0, 4, false));
    EXPECT_EQ(attach(makeSamples(none.get(), 1).get(), List(0, 0).get()), -12731);
}

TEST_F(SampleData, OfAFormatWithoutFrameSizeIsRefused) {
    AudioStreamBasicDescription format = pcmFormat(2, 2, true);
    format.mBytesPerFrame = 0;
    const auto description = describe(format);
    const auto samples = makeSamples(description.get(), 2);
    EXPECT_EQ(attach(samples.get(), List(1, 8).get()), -12731);
}

TEST_F(SampleData, IsPointedAtByAListWithAReferenceToItsMemory) {
    auto samples = makeSamples(interleaved_.get(), 2);
    ASSERT_EQ(attach(samples.get(), List(1, 8).get()), noErr);
    AudioBufferList list = {};
    size_t needed = 0;
    Held<CMBlockBufferRef> block;
    ASSERT_EQ(getList(samples.get(), &needed, &list, sizeof list, 0, block.out()), noErr);
    EXPECT_EQ(needed, sizeof list);
    EXPECT_EQ(block.get(), CMSampleBufferGetDataBuffer(samples.get()));
    samples = Held<CMSampleBufferRef>();
    ASSERT_EQ(list.mNumberBuffers, 1U);
    EXPECT_EQ(list.mBuffers[0].mNumberChannels, 2U);
    ASSERT_EQ(list.mBuffers[0].mDataByteSize, 8U);
    EXPECT_EQ(static_cast<const unsigned char*>(list.mBuffers[0].mData)[7], 7);
}

TEST_F(SampleData, OfSeveralChannelsIsPointedAtChannelByChannel) {
    const auto samples = makeSamples(planar_.get(), 4);
    ASSERT_EQ(attach(samples.get(), List(2, 16).get()), noErr);
    List list(2, 0);
    Held<CMBlockBufferRef> block;
    ASSERT_EQ(getList(samples.get(), nullptr, list.get(), 40, kAligned, block.out()), noErr);
    EXPECT_EQ(block.get(), CMSampleBufferGetDataBuffer(samples.get()));
    for (unsigned char index = 0; index < 2; ++index) {
        EXPECT_EQ(list.buffer(index).mNumberChannels, 1U);
        ASSERT_EQ(list.buffer(index).mDataByteSize, 16U);
        EXPECT_EQ(static_cast<const unsigned char*>(list.buffer(index).mData)[0], 16 * index);
    }
}

TEST_F(SampleData, IsCopiedWhereItsChannelsAreNotAligned) {
    const auto samples = makeSamples(planar_.get(), 3);
    List source(2, 12);
    ASSERT_EQ(attach(samples.get(), source.get()), noErr);
    List list(2, 0);
    Held<CMBlockBufferRef> block;
    ASSERT_EQ(getList(samples.get(), nullptr, list.get(), 40, kAligned, block.out()), noErr);
    EXPECT_NE(block.get(), CMSampleBufferGetDataBuffer(samples.get()));
    EXPECT_EQ(CFGetRetainCount(block.get()), 1);
    for (std::size_t index = 0; index < 2; ++index) {
        const AudioBuffer& buffer = list.buffer(index);
        ASSERT_EQ(buffer.mDataByteSize, 12U);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.mData) % 16, 0U);
        const auto* const bytes = static_cast<const unsigned char*>(buffer.mData);
        EXPECT_THAT(std::vector<unsigned char>(bytes, bytes + 12),
                    ElementsAreArray(source.data(index)));
    }
}

TEST_F(SampleData, SaysHowLargeAListItNeeds) {
    const auto samples = makeSamples(planar_.get(), 3);
    size_t needed = 0;
    EXPECT_EQ(getList(samples.get(), &needed, nullptr, 0, 0, nullptr), noErr);
    EXPECT_EQ(needed, 40U);
    EXPECT_EQ(getList(samples.get(), nullptr, nullptr, 0, 0, nullptr), noErr);
}

TEST_F(SampleData, IsNotPointedAtByATooSmallList) {
    const auto samples = makeSamples(planar_.get(), 1);
    ASSERT_EQ(attach(samples.get(), List(2, 4).get()), noErr);
    List list(2, 0);
    auto block = reinterpret_cast<CMBlockBufferRef>(std::uintptr_t{1});
    EXPECT_EQ(getList(samples.get(), nullptr, list.get(), 39, 0, &block), -12737);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(CFGetRetainCount(CMSampleBufferGetDataBuffer(samples.get())), 1);
}

TEST_F(SampleData, IsNotPointedAtBeforeItIsThere) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    AudioBufferList list = {};
    CMBlockBufferRef block = nullptr;
    EXPECT_EQ(getList(samples.get(), nullptr, &list, sizeof list, 0, &block), -12733);
    EXPECT_EQ(getList(samples.get(), nullptr, &list, sizeof list, 0, nullptr), -12731);
    EXPECT_EQ(getList(nullptr, nullptr, &list, sizeof list, 0, &block), -12731);
    EXPECT_EQ(getList(makeSamples(nullptr, 2).get(), nullptr, &list, sizeof list, 0, &block),
              -12741);
}

TEST_F(SampleData, ShorterThanItsSamplesIsNeverRead) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    ASSERT_EQ(attach(samples.get(), List(1, 8).get()), noErr);
    for (const CMItemCount count : {3L, 1L << 62}) {
        Held<CMSampleBufferRef> longer;
        ASSERT_EQ(CMSampleBufferCreate(
                      kCFAllocatorDefault, CMSampleBufferGetDataBuffer(samples.get()), 1, nullptr,
                      nullptr, interleaved_.get(), count, 0, nullptr, 0, nullptr, longer.out()),
                  noErr);
        AudioBufferList list = {};
        CMBlockBufferRef block = nullptr;
        EXPECT_EQ(getList(longer.get(), nullptr, &list, sizeof list, 0, &block), -12743);
        List target(1, 16);
        EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(longer.get(), 0, 1, target.get()),
                  -12743);
    }
}

TEST_F(SampleData, IsCopiedOutFrameByFrame) {
    const auto samples = makeSamples(planar_.get(), 3);
    ASSERT_EQ(attach(samples.get(), List(2, 12).get()), noErr);
    List target(2, 12);
    std::memset(target.buffer(0).mData, 0xEE, 12);
    std::memset(target.buffer(1).mData, 0xEE, 12);
    ASSERT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 1, 2, target.get()),
              noErr);
    EXPECT_EQ(target.buffer(0).mDataByteSize, 8U);
    EXPECT_EQ(target.buffer(1).mDataByteSize, 8U);
    EXPECT_THAT(target.data(0), ElementsAre(4, 5, 6, 7, 8, 9, 10, 11, 0xEE, 0xEE, 0xEE, 0xEE));
    EXPECT_THAT(target.data(1),
                ElementsAre(16, 17, 18, 19, 20, 21, 22, 23, 0xEE, 0xEE, 0xEE, 0xEE));
}

TEST_F(SampleData, IsNotCopiedOutBeyondItsEnds) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    ASSERT_EQ(attach(samples.get(), List(1, 8).get()), noErr);
    List target(1, 64);
    const auto copy = [&](int32_t offset, int32_t frames) {
        return CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), offset, frames,
                                                            target.get());
    };
    EXPECT_EQ(copy(0, 3), -12734);
    EXPECT_EQ(copy(2, 1), -12734);
    EXPECT_EQ(copy(-1, 1), -12734);
    EXPECT_EQ(copy(0, -1), -12734);
    EXPECT_EQ(copy(INT32_MAX, INT32_MAX), -12734);
    EXPECT_EQ(target.buffer(0).mDataByteSize, 64U);
    EXPECT_EQ(copy(2, 0), noErr);
    EXPECT_EQ(target.buffer(0).mDataByteSize, 0U);
}

TEST_F(SampleData, IsNotCopiedIntoAListOfAnotherShape) {
    const auto samples = makeSamples(interleaved_.get(), 2);
    List target(1, 7);
    EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 0, 2, target.get()),
              -12733);
    ASSERT_EQ(attach(samples.get(), List(1, 8).get()), noErr);
    EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 0, 2, target.get()),
              -12737);
    EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 0, 2, List(2, 8).get()),
              -12737);
    EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 0, 2, nullptr), -12731);
    EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(nullptr, 0, 2, target.get()), -12731);
    List missing(1, 8);
    missing.buffer(0).mData = nullptr;
    EXPECT_EQ(CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 0, 2, missing.get()),
              -12731);
}

TEST_F(SampleData, MayBeReadByManyThreads) {
    const auto samples = makeSamples(planar_.get(), 3);
    ASSERT_EQ(attach(samples.get(), List(2, 12).get()), noErr);
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&samples] {
            for (int round = 0; round < 200; ++round) {
                List target(2, 12);
                ASSERT_EQ(
                    CMSampleBufferCopyPCMDataIntoAudioBufferList(samples.get(), 0, 3, target.get()),
                    noErr);
                List list(2, 0);
                Held<CMBlockBufferRef> block;
                ASSERT_EQ(getList(samples.get(), nullptr, list.get(), 40, 0, block.out()), noErr);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CFGetRetainCount(CMSampleBufferGetDataBuffer(samples.get())), 1);
}
