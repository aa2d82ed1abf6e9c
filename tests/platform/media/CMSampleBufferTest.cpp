#include <gtest/gtest.h>

#include <climits>

#include "SampleBuffers.h"
#include "TimeMatching.h"

static_assert(sizeof(CMItemCount) == sizeof(long));
static_assert(kCMSampleBufferError_AllocationFailed == -12730);
static_assert(kCMSampleBufferError_RequiredParameterMissing == -12731);
static_assert(kCMSampleBufferError_AlreadyHasDataBuffer == -12732);
static_assert(kCMSampleBufferError_BufferNotReady == -12733);
static_assert(kCMSampleBufferError_SampleIndexOutOfRange == -12734);
static_assert(kCMSampleBufferError_BufferHasNoSampleSizes == -12735);
static_assert(kCMSampleBufferError_BufferHasNoSampleTimingInfo == -12736);
static_assert(kCMSampleBufferError_ArrayTooSmall == -12737);
static_assert(kCMSampleBufferError_InvalidEntryCount == -12738);
static_assert(kCMSampleBufferError_SampleTimingInfoInvalid == -12740);
static_assert(kCMSampleBufferError_InvalidMediaTypeForOperation == -12741);
static_assert(kCMSampleBufferError_InvalidMediaFormat == -12743);
static_assert(kCMSampleBufferError_Invalidated == -12744);

namespace {

const CMSampleTimingInfo kTiming = {CMTimeMake(1, 44100), CMTimeMake(100, 44100), kCMTimeInvalid};

struct Parts {
    CMBlockBufferRef data = nullptr;
    CMFormatDescriptionRef format = nullptr;
    CMItemCount samples = 0;
    CMItemCount timings = 0;
    const CMSampleTimingInfo* timing = nullptr;
    CMItemCount sizes = 0;
    const size_t* size = nullptr;
};

OSStatus create(const Parts& parts, CMSampleBufferRef* out) {
    return CMSampleBufferCreate(kCFAllocatorDefault, parts.data, 0, nullptr, nullptr, parts.format,
                                parts.samples, parts.timings, parts.timing, parts.sizes, parts.size,
                                out);
}

Held<CMSampleBufferRef> created(const Parts& parts) {
    Held<CMSampleBufferRef> buffer;
    EXPECT_EQ(create(parts, buffer.out()), noErr);
    return buffer;
}

/// The status of a creation that must fail; the result must be cleared.
OSStatus refused(const Parts& parts) {
    auto out = reinterpret_cast<CMSampleBufferRef>(std::uintptr_t{1});
    const OSStatus status = create(parts, &out);
    EXPECT_EQ(out, nullptr);
    return status;
}

}  // namespace

TEST(SampleBuffer, KeepsWhatItWasMadeOf) {
    const auto format = describe(pcmFormat(2, 2, true));
    const auto buffer = created({nullptr, format.get(), 1024, 1, &kTiming, 0, nullptr});
    EXPECT_EQ(CMSampleBufferGetNumSamples(buffer.get()), 1024);
    EXPECT_EQ(CMSampleBufferGetFormatDescription(buffer.get()), format.get());
    EXPECT_EQ(CMSampleBufferGetDataBuffer(buffer.get()), nullptr);
    EXPECT_FALSE(CMSampleBufferDataIsReady(buffer.get()));
    EXPECT_TRUE(isTime(CMSampleBufferGetPresentationTimeStamp(buffer.get()), 100, 44100));
    EXPECT_TRUE(isTime(CMSampleBufferGetDecodeTimeStamp(buffer.get()), kCMTimeInvalid));
}

TEST(SampleBuffer, HoldsItsFormatDescription) {
    auto format = describe(pcmFormat(2, 2, true));
    const auto buffer = created({nullptr, format.get(), 1, 0, nullptr, 0, nullptr});
    format = Held<CMFormatDescriptionRef>();
    const AudioStreamBasicDescription* const stream =
        CMAudioFormatDescriptionGetStreamBasicDescription(
            CMSampleBufferGetFormatDescription(buffer.get()));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(stream->mBytesPerFrame, 4U);
}

TEST(SampleBuffer, LetsGoOfItsFormatDescription) {
    const auto format = describe(pcmFormat(2, 2, true));
    {
        const auto buffer = created({nullptr, format.get(), 1, 0, nullptr, 0, nullptr});
        EXPECT_EQ(CFGetRetainCount(format.get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(format.get()), 1);
}

TEST(SampleBuffer, SharesADataBuffer) {
    const auto format = describe(pcmFormat(2, 2, true));
    const auto first = makeSamples(format.get(), 2);
    ASSERT_EQ(attach(first.get(), List(1, 8).get()), noErr);
    const CMBlockBufferRef data = CMSampleBufferGetDataBuffer(first.get());
    Held<CMSampleBufferRef> second;
    ASSERT_EQ(CMSampleBufferCreate(kCFAllocatorDefault, data, 1, nullptr, nullptr, format.get(), 2,
                                   0, nullptr, 0, nullptr, second.out()),
              noErr);
    EXPECT_EQ(CMSampleBufferGetDataBuffer(second.get()), data);
    EXPECT_TRUE(CMSampleBufferDataIsReady(second.get()));
    EXPECT_EQ(CFGetRetainCount(data), 2);
    EXPECT_EQ(attach(second.get(), List(1, 8).get()), kCMSampleBufferError_AlreadyHasDataBuffer);
}

TEST(SampleBuffer, OneTimingEntryStandsForAllSamples) {
    const auto buffer = created({nullptr, nullptr, 1024, 1, &kTiming, 0, nullptr});
    EXPECT_TRUE(isTime(CMSampleBufferGetDuration(buffer.get()), 1024, 44100));
    CMSampleTimingInfo info = {};
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, &info), noErr);
    EXPECT_TRUE(isTime(info.presentationTimeStamp, 100, 44100));
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 1023, &info), noErr);
    EXPECT_TRUE(isTime(info.presentationTimeStamp, 1123, 44100));
    EXPECT_TRUE(isTime(info.duration, 1, 44100));
    EXPECT_TRUE(isTime(info.decodeTimeStamp, kCMTimeInvalid));
}

TEST(SampleBuffer, ADecodeTimeMovesWithThePresentationTime) {
    const CMSampleTimingInfo timing = {CMTimeMake(2, 100), CMTimeMake(10, 100), CMTimeMake(5, 100)};
    const auto buffer = created({nullptr, nullptr, 4, 1, &timing, 0, nullptr});
    EXPECT_TRUE(isTime(CMSampleBufferGetDecodeTimeStamp(buffer.get()), 5, 100));
    CMSampleTimingInfo info = {};
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 3, &info), noErr);
    EXPECT_TRUE(isTime(info.decodeTimeStamp, 11, 100));
}

TEST(SampleBuffer, EverySampleMayHaveItsOwnTimes) {
    const CMSampleTimingInfo timing[] = {
        {CMTimeMake(1, 2), CMTimeMake(0, 2), kCMTimeInvalid},
        {CMTimeMake(1, 3), CMTimeMake(1, 2), kCMTimeInvalid},
        {CMTimeMake(1, 6), CMTimeMake(5, 6), kCMTimeInvalid},
    };
    const auto buffer = created({nullptr, nullptr, 3, 3, timing, 0, nullptr});
    EXPECT_TRUE(isTime(CMSampleBufferGetDuration(buffer.get()), 6, 6));
    CMSampleTimingInfo info = {};
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 2, &info), noErr);
    EXPECT_TRUE(isTime(info.presentationTimeStamp, 5, 6));
    EXPECT_TRUE(isTime(info.duration, 1, 6));
}

TEST(SampleBuffer, WithoutADurationHasNoTotalOne) {
    const CMSampleTimingInfo timing = {kCMTimeInvalid, CMTimeMake(7, 1000), kCMTimeInvalid};
    const auto buffer = created({nullptr, nullptr, 5, 1, &timing, 0, nullptr});
    EXPECT_TRUE(isTime(CMSampleBufferGetDuration(buffer.get()), kCMTimeInvalid));
    EXPECT_TRUE(isTime(CMSampleBufferGetPresentationTimeStamp(buffer.get()), 7, 1000));
    CMSampleTimingInfo info = {};
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, &info), noErr);
    EXPECT_TRUE(isTime(info.presentationTimeStamp, 7, 1000));
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 1, &info), noErr);
    EXPECT_TRUE(isTime(info.presentationTimeStamp, kCMTimeInvalid));
}

TEST(SampleBuffer, WithoutTimingEntriesHasNoTimes) {
    const auto buffer = created({nullptr, nullptr, 5, 0, nullptr, 0, nullptr});
    EXPECT_TRUE(isTime(CMSampleBufferGetDuration(buffer.get()), kCMTimeInvalid));
    EXPECT_TRUE(isTime(CMSampleBufferGetPresentationTimeStamp(buffer.get()), kCMTimeInvalid));
    EXPECT_TRUE(isTime(CMSampleBufferGetDecodeTimeStamp(buffer.get()), kCMTimeInvalid));
    CMSampleTimingInfo info = {};
    EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, &info),
              kCMSampleBufferError_BufferHasNoSampleTimingInfo);
}

TEST(SampleBuffer, RefusesTimesOfSamplesThatAreNotThere) {
    const auto buffer = created({nullptr, nullptr, 5, 1, &kTiming, 0, nullptr});
    CMSampleTimingInfo info = {};
    EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 5, &info),
              kCMSampleBufferError_SampleIndexOutOfRange);
    EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), -1, &info),
              kCMSampleBufferError_SampleIndexOutOfRange);
    EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, nullptr),
              kCMSampleBufferError_RequiredParameterMissing);
}

TEST(SampleBuffer, SaysTheSizeOfASample) {
    const size_t sizes[] = {3, 5};
    const auto each = created({nullptr, nullptr, 2, 0, nullptr, 2, sizes});
    EXPECT_EQ(CMSampleBufferGetSampleSize(each.get(), 0), 3U);
    EXPECT_EQ(CMSampleBufferGetSampleSize(each.get(), 1), 5U);
    EXPECT_EQ(CMSampleBufferGetSampleSize(each.get(), 2), 0U);
    EXPECT_EQ(CMSampleBufferGetSampleSize(each.get(), -1), 0U);
    const auto one = created({nullptr, nullptr, 9, 0, nullptr, 1, sizes});
    EXPECT_EQ(CMSampleBufferGetSampleSize(one.get(), 8), 3U);
    const auto format = describe(pcmFormat(2, 4, false));
    const auto pcm = created({nullptr, format.get(), 9, 0, nullptr, 0, nullptr});
    EXPECT_EQ(CMSampleBufferGetSampleSize(pcm.get(), 0), 8U);
    const auto unknown = created({nullptr, nullptr, 9, 0, nullptr, 0, nullptr});
    EXPECT_EQ(CMSampleBufferGetSampleSize(unknown.get(), 0), 0U);
}

TEST(SampleBuffer, RefusesEntryCountsThatAreNeitherNoneOneNorAll) {
    const CMSampleTimingInfo timing[] = {kTiming, kTiming};
    const size_t sizes[] = {1, 1};
    EXPECT_EQ(refused({nullptr, nullptr, 3, 2, timing, 0, nullptr}), -12738);
    EXPECT_EQ(refused({nullptr, nullptr, 3, 0, nullptr, 2, sizes}), -12738);
    EXPECT_EQ(refused({nullptr, nullptr, -1, 0, nullptr, 0, nullptr}), -12738);
    EXPECT_EQ(refused({nullptr, nullptr, 1, -1, timing, 0, nullptr}), -12738);
    EXPECT_EQ(refused({nullptr, nullptr, -2, -2, timing, -2, sizes}), -12738);
}

TEST(SampleBuffer, RefusesMissingParameters) {
    EXPECT_EQ(refused({nullptr, nullptr, 3, 1, nullptr, 0, nullptr}), -12731);
    EXPECT_EQ(refused({nullptr, nullptr, 3, 0, nullptr, 1, nullptr}), -12731);
    EXPECT_EQ(create({nullptr, nullptr, 0, 0, nullptr, 0, nullptr}, nullptr), -12731);
}

TEST(SampleBuffer, RefusesBuffersAndDescriptionsThatAreNotAlive) {
    const auto format = describe(pcmFormat(2, 2, true));
    const auto asData = reinterpret_cast<CMBlockBufferRef>(
        const_cast<void*>(static_cast<const void*>(format.get())));
    EXPECT_EQ(refused({asData, format.get(), 1, 0, nullptr, 0, nullptr}), -12731);
    CMFormatDescriptionRef stale = nullptr;
    {
        const auto short_lived = describe(pcmFormat(2, 2, true));
        stale = short_lived.get();
    }
    EXPECT_EQ(refused({nullptr, stale, 1, 0, nullptr, 0, nullptr}), -12731);
}

TEST(SampleBuffer, SaysWhenThereIsNoMemoryForItsEntries) {
    EXPECT_EQ(refused({nullptr, nullptr, LONG_MAX, LONG_MAX, &kTiming, 0, nullptr}), -12730);
}

TEST(SampleBuffer, MayHaveMoreSamplesThanFitInMemory) {
    const auto buffer = created({nullptr, nullptr, LONG_MAX, 1, &kTiming, 0, nullptr});
    EXPECT_TRUE(isTime(CMSampleBufferGetDuration(buffer.get()), LONG_MAX, 44100));
    CMSampleTimingInfo info = {};
    ASSERT_EQ(CMSampleBufferGetSampleTimingInfo(buffer.get(), LONG_MAX - 1, &info), noErr);
    EXPECT_TRUE(isTime(info.presentationTimeStamp, kCMTimePositiveInfinity));
}

TEST(SampleBuffer, AsksItsCallbackForTheData) {
    struct Source {
        OSStatus answer = -1;
        int calls = 0;
    } source;
    Held<CMSampleBufferRef> buffer;
    ASSERT_EQ(CMSampleBufferCreate(
                  kCFAllocatorDefault, nullptr, 0,
                  [](CMSampleBufferRef, void* context) {
                      auto* const asked = static_cast<Source*>(context);
                      ++asked->calls;
                      return asked->answer;
                  },
                  &source, nullptr, 1, 0, nullptr, 0, nullptr, buffer.out()),
              noErr);
    EXPECT_EQ(CMSampleBufferMakeDataReady(buffer.get()), -1);
    EXPECT_FALSE(CMSampleBufferDataIsReady(buffer.get()));
    source.answer = noErr;
    EXPECT_EQ(CMSampleBufferMakeDataReady(buffer.get()), noErr);
    EXPECT_TRUE(CMSampleBufferDataIsReady(buffer.get()));
    EXPECT_EQ(CMSampleBufferMakeDataReady(buffer.get()), noErr);
    EXPECT_EQ(source.calls, 2);
}

TEST(SampleBuffer, WithoutACallbackStaysUnready) {
    const auto buffer = created({nullptr, nullptr, 1, 0, nullptr, 0, nullptr});
    EXPECT_EQ(CMSampleBufferMakeDataReady(buffer.get()), kCMSampleBufferError_BufferNotReady);
}

TEST(SampleBuffer, GettersAnswerNothingForOtherHandles) {
    const auto format = describe(pcmFormat(2, 2, true));
    CMSampleBufferRef stale = nullptr;
    {
        const auto buffer = makeSamples(format.get(), 3);
        stale = buffer.get();
    }
    const auto other = reinterpret_cast<CMSampleBufferRef>(
        const_cast<void*>(static_cast<const void*>(format.get())));
    for (const CMSampleBufferRef wrong : {CMSampleBufferRef{nullptr}, stale, other}) {
        EXPECT_EQ(CMSampleBufferGetNumSamples(wrong), 0);
        EXPECT_EQ(CMSampleBufferGetFormatDescription(wrong), nullptr);
        EXPECT_EQ(CMSampleBufferGetDataBuffer(wrong), nullptr);
        EXPECT_FALSE(CMSampleBufferDataIsReady(wrong));
        EXPECT_EQ(CMSampleBufferGetSampleSize(wrong, 0), 0U);
        EXPECT_TRUE(isTime(CMSampleBufferGetDuration(wrong), kCMTimeInvalid));
        EXPECT_TRUE(isTime(CMSampleBufferGetPresentationTimeStamp(wrong), kCMTimeInvalid));
        EXPECT_TRUE(isTime(CMSampleBufferGetDecodeTimeStamp(wrong), kCMTimeInvalid));
        CMSampleTimingInfo info = {};
        EXPECT_EQ(CMSampleBufferGetSampleTimingInfo(wrong, 0, &info), -12731);
        EXPECT_EQ(CMSampleBufferMakeDataReady(wrong), -12731);
    }
}
