#include <CoreMedia/CoreMedia.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "BufferLists.h"
#include "LogCapture.h"
#include "RZStreamCollectManager.h"
#include "StreamFormats.h"
#include "TQAudioRecordResolver.h"

// The platform's sample buffer made of a block. The format label is made once for the process,
// so each case needs a process of its own.

using testing::ElementsAre;

namespace {

struct Release {
    void operator()(CMSampleBufferRef buffer) const { CFRelease(buffer); }
};
using SampleBuffer = std::unique_ptr<std::remove_pointer_t<CMSampleBufferRef>, Release>;

constexpr const char* kSampleBufferFile = "Classes/RZStreamCollectManager";
constexpr const char* kFunction =
    "-[RZStreamCollectManager "
    "createSampleBufferFromAudioBufferList:description:atPresentationTimeStamp:]";

const CMTime kWhen = CMTimeMake(123456, 1000000);

SampleBuffer make(OwnedBufferList& list, const AudioStreamBasicDescription& format) {
    return SampleBuffer(
        RZStreamCollectManager::sharedManager().createSampleBufferFromAudioBufferList(
            list.get(), *RZReplayASBDInfo::formatInfoWithDesc(format), kWhen));
}

const AudioStreamBasicDescription& labelOf(const SampleBuffer& buffer) {
    return *CMAudioFormatDescriptionGetStreamBasicDescription(
        CMSampleBufferGetFormatDescription(buffer.get()));
}

void expectTime(std::int64_t value, std::int32_t scale, const CMTime& time) {
    EXPECT_EQ(value, time.value);
    EXPECT_EQ(scale, time.timescale);
    EXPECT_TRUE((time.flags & kCMTimeFlags_Valid) != 0);
}

/// Redirects this program's calls, the library's among them.
template <class Function>
Function* replace(const char* symbol, Function* replacement) {
    static Function* saved = nullptr;
    TQRebinding record{symbol, reinterpret_cast<void*>(replacement),
                       reinterpret_cast<void**>(&saved)};
    EXPECT_EQ(0, tqreplay_rebind_symbols(&record, 1));
    return saved;
}

OSStatus failingCreate(CFAllocatorRef, CMBlockBufferRef, Boolean,
                       CMSampleBufferMakeDataReadyCallback, void*, CMFormatDescriptionRef,
                       CMItemCount, CMItemCount, const CMSampleTimingInfo*, CMItemCount,
                       const size_t*, CMSampleBufferRef*) {
    return -12730;
}

int formatsMade = 0;
OSStatus (*platformFormatCreate)(CFAllocatorRef, const AudioStreamBasicDescription*, size_t,
                                 const AudioChannelLayout*, size_t, const void*, CFDictionaryRef,
                                 CMAudioFormatDescriptionRef*) = nullptr;
OSStatus countingFormatCreate(CFAllocatorRef allocator, const AudioStreamBasicDescription* desc,
                              size_t layoutSize, const AudioChannelLayout* layout,
                              size_t cookieSize, const void* cookie, CFDictionaryRef extensions,
                              CMAudioFormatDescriptionRef* out) {
    ++formatsMade;
    return platformFormatCreate(allocator, desc, layoutSize, layout, cookieSize, cookie, extensions,
                                out);
}

}  // namespace

TEST(RZStreamCollectManagerSampleBufferTest, HoldsACopyOfTheBlock) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    list.fillRising<SInt16>(0, 1);
    const auto expected = list.copyOf<SInt16>();
    const SampleBuffer buffer = make(list, stream_formats::int16Interleaved(44100, 2));
    ASSERT_NE(nullptr, buffer);
    list.fillBytes(0);
    EXPECT_TRUE(CMSampleBufferDataIsReady(buffer.get()));
    EXPECT_EQ(1024, CMSampleBufferGetNumSamples(buffer.get()));
    const CMBlockBufferRef data = CMSampleBufferGetDataBuffer(buffer.get());
    ASSERT_EQ(4096U, CMBlockBufferGetDataLength(data));
    std::vector<SInt16> copy(2048);
    ASSERT_EQ(0, CMBlockBufferCopyDataBytes(data, 0, 4096, copy.data()));
    EXPECT_EQ(expected, copy);
}

TEST(RZStreamCollectManagerSampleBufferTest, IsLabelledWithTheDescriptionsFormat) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    AudioStreamBasicDescription odd = stream_formats::int16Interleaved(44100, 2);
    // What the record does not carry, or carries otherwise, is worked out anew.
    odd.mBytesPerFrame = 99;
    odd.mBytesPerPacket = 98;
    odd.mFramesPerPacket = 97;
    odd.mReserved = 96;
    odd.mFormatID = 95;
    odd.mFormatFlags = 4;
    const SampleBuffer buffer = make(list, odd);
    ASSERT_NE(nullptr, buffer);
    const AudioStreamBasicDescription& label = labelOf(buffer);
    EXPECT_EQ(44100.0, label.mSampleRate);
    EXPECT_EQ(kAudioFormatLinearPCM, label.mFormatID);
    EXPECT_EQ(4U, label.mFormatFlags);
    EXPECT_EQ(4U, label.mBytesPerFrame);
    EXPECT_EQ(4U, label.mBytesPerPacket);
    EXPECT_EQ(1U, label.mFramesPerPacket);
    EXPECT_EQ(2U, label.mChannelsPerFrame);
    EXPECT_EQ(16U, label.mBitsPerChannel);
    EXPECT_EQ(0U, label.mReserved);
    std::size_t size = 1;
    const auto format = CMSampleBufferGetFormatDescription(buffer.get());
    EXPECT_EQ(nullptr, CMAudioFormatDescriptionGetChannelLayout(format, &size));
    EXPECT_EQ(nullptr, CMAudioFormatDescriptionGetMagicCookie(format, &size));
}

TEST(RZStreamCollectManagerSampleBufferTest, HasOneTimingEntryForAllSamples) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    const SampleBuffer buffer = make(list, stream_formats::int16Interleaved(48000, 2));
    ASSERT_NE(nullptr, buffer);
    CMSampleTimingInfo timing{};
    ASSERT_EQ(0, CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, &timing));
    expectTime(1, 48000, timing.duration);
    expectTime(123456, 1000000, timing.presentationTimeStamp);
    EXPECT_EQ(0U, timing.decodeTimeStamp.flags) << "invalid";
    expectTime(123456, 1000000, CMSampleBufferGetPresentationTimeStamp(buffer.get()));
}

TEST(RZStreamCollectManagerSampleBufferTest, FractionalRateGivesATruncatedTimescale) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    const SampleBuffer buffer = make(list, stream_formats::int16Interleaved(44100.9, 2));
    ASSERT_NE(nullptr, buffer);
    CMSampleTimingInfo timing{};
    ASSERT_EQ(0, CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, &timing));
    expectTime(1, 44100, timing.duration);
}

TEST(RZStreamCollectManagerSampleBufferTest, LaterFormatsKeepTheFirstLabelAndTheirOwnTimes) {
    platformFormatCreate = replace("CMAudioFormatDescriptionCreate", &countingFormatCreate);
    ASSERT_NE(nullptr, platformFormatCreate);
    auto list = OwnedBufferList::interleaved(2, 4096);
    const SampleBuffer first = make(list, stream_formats::int16Interleaved(44100, 2));
    const SampleBuffer second = make(list, stream_formats::int16Interleaved(22050, 2));
    ASSERT_NE(nullptr, second);
    EXPECT_EQ(44100.0, labelOf(second).mSampleRate);
    EXPECT_EQ(CMSampleBufferGetFormatDescription(first.get()),
              CMSampleBufferGetFormatDescription(second.get()));
    CMSampleTimingInfo timing{};
    ASSERT_EQ(0, CMSampleBufferGetSampleTimingInfo(second.get(), 0, &timing));
    expectTime(1, 22050, timing.duration);
    EXPECT_EQ(1, formatsMade);
}

TEST(RZStreamCollectManagerSampleBufferTest, EveryCallMakesABufferThatTheCallerOwns) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    const SampleBuffer first = make(list, stream_formats::int16Interleaved(44100, 2));
    const SampleBuffer second = make(list, stream_formats::int16Interleaved(44100, 2));
    EXPECT_NE(first, second);
    EXPECT_EQ(1, CFGetRetainCount(first.get()));
}

TEST(RZStreamCollectManagerSampleBufferTest, FailedCreationIsLoggedAndAnswersNull) {
    ASSERT_NE(nullptr, replace("CMSampleBufferCreate", &failingCreate));
    const LogCapture log;
    auto list = OwnedBufferList::interleaved(2, 4096);
    EXPECT_EQ(nullptr, make(list, stream_formats::int16Interleaved(44100, 2)));
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine(kSampleBufferFile, kFunction, 2,
                                                   "CMSampleBufferCreate error")));
}

TEST(RZStreamCollectManagerSampleBufferTest, FramesOfAnotherSizeComeWholeUnderTheFirstLabel) {
    struct Later {
        AudioStreamBasicDescription format;
        UInt32 buffers;
        UInt32 channelsPerBuffer;
        UInt32 bytes;
        CMItemCount samples;
    };
    auto first = OwnedBufferList::interleaved(2, 4096);
    const SampleBuffer label = make(first, stream_formats::int16Interleaved(44100, 2));
    const Later all[] = {
        {stream_formats::int16Interleaved(22050, 1), 1, 1, 882, 441},
        {stream_formats::floatInterleaved(44100, 2), 1, 2, 4096, 512},
        {stream_formats::linear(48000, kAudioFormatFlagIsSignedInteger, 24, 1, 1), 1, 1, 1323, 441},
        {stream_formats::linear(
             48000, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsNonInterleaved, 16, 2, 1),
         2, 1, 1024, 256}};
    for (const Later& later : all) {
        auto list = later.buffers == 1
                        ? OwnedBufferList::interleaved(later.channelsPerBuffer, later.bytes)
                        : OwnedBufferList::planar(later.buffers, later.bytes);
        for (UInt32 i = 0; i < later.buffers; ++i) {
            std::memset(list.get()->mBuffers[i].mData, static_cast<int>(i + 1), later.bytes);
        }
        const LogCapture log;
        const SampleBuffer buffer = make(list, later.format);
        ASSERT_NE(nullptr, buffer) << later.format.mBitsPerChannel;
        EXPECT_THAT(log.lines(), testing::IsEmpty());
        EXPECT_EQ(CMSampleBufferGetFormatDescription(label.get()),
                  CMSampleBufferGetFormatDescription(buffer.get()));
        EXPECT_EQ(later.samples, CMSampleBufferGetNumSamples(buffer.get()));
        EXPECT_TRUE(CMSampleBufferDataIsReady(buffer.get()));
        EXPECT_EQ(1, CFGetRetainCount(buffer.get()));
        CMSampleTimingInfo timing{};
        ASSERT_EQ(0, CMSampleBufferGetSampleTimingInfo(buffer.get(), 0, &timing));
        expectTime(1, static_cast<std::int32_t>(later.format.mSampleRate), timing.duration);
        std::vector<std::uint8_t> bytes(std::size_t{later.buffers} * later.bytes);
        const CMBlockBufferRef data = CMSampleBufferGetDataBuffer(buffer.get());
        ASSERT_EQ(bytes.size(), CMBlockBufferGetDataLength(data));
        ASSERT_EQ(0, CMBlockBufferCopyDataBytes(data, 0, bytes.size(), bytes.data()));
        EXPECT_EQ(1, bytes.front());
        EXPECT_EQ(later.buffers, bytes.back());
    }
}

TEST(RZStreamCollectManagerSampleBufferTest, BlockOfNoWholeSamplesIsLoggedAndAnswersNull) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    make(list, stream_formats::int16Interleaved(44100, 2));
    const LogCapture log;
    auto odd = OwnedBufferList::interleaved(1, 1001);
    EXPECT_EQ(nullptr, make(odd, stream_formats::int16Interleaved(44100, 1)));
    EXPECT_THAT(
        log.lines(),
        ElementsAre(IsLogLine(kSampleBufferFile, kFunction, 2,
                              "CMSampleBufferSetDataBufferFromAudioBufferList error:" +
                                  std::to_string(kCMSampleBufferError_RequiredParameterMissing))));
}

TEST(RZStreamCollectManagerSampleBufferTest, FormatWithoutFramesGivesNoSamples) {
    auto list = OwnedBufferList::interleaved(2, 4096);
    AudioStreamBasicDescription empty{};
    empty.mSampleRate = 44100;
    const SampleBuffer buffer = make(list, empty);
    EXPECT_TRUE(buffer == nullptr || CMSampleBufferGetNumSamples(buffer.get()) == 0);
}

TEST(RZStreamCollectManagerSampleBufferTest, MissingAndEmptyListsDoNoHarm) {
    RZStreamCollectManager& manager = RZStreamCollectManager::sharedManager();
    const auto info =
        RZReplayASBDInfo::formatInfoWithDesc(stream_formats::int16Interleaved(44100, 2));
    EXPECT_EQ(nullptr, manager.createSampleBufferFromAudioBufferList(nullptr, *info, kWhen));
    auto none = OwnedBufferList::planar(0, 0);
    const SampleBuffer buffer(
        manager.createSampleBufferFromAudioBufferList(none.get(), *info, kWhen));
    EXPECT_TRUE(buffer == nullptr || CMSampleBufferGetNumSamples(buffer.get()) == 0);
}
