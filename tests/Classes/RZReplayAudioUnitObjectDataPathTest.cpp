#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "BufferLists.h"
#include "DataPathFixture.h"
#include "StreamFormats.h"

// Writing and reading of blocks.

using testing::Each;

using testing::IsEmpty;

namespace {

constexpr const char* kWrite =
    "-[RZReplayAudioUnitObject tryWriteBuffersFrom:numberFrames:isProcessed:]";
constexpr const char* kRead =
    "-[RZReplayAudioUnitObject tryReadBuffersTo:numberFrames:isProcessed:]";

class RZReplayAudioUnitObjectDataPathTest : public DataPathFixture {};

}  // namespace

// Writing.

TEST_F(RZReplayAudioUnitObjectDataPathTest, WriteQueuesTheBlockOnTheSideAskedFor) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, 400);
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100, NO));
    EXPECT_EQ(400U, queued(NO));
    EXPECT_EQ(0U, queued(YES));
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 50, YES));
    EXPECT_EQ(400U, queued(NO));
    EXPECT_EQ(200U, queued(YES));
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ABlockAcrossAChangeOfTheFormatIsNotStored) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, 400);
    obj.noteRenderBegins();
    obj.beginFormatChange();
    obj.endFormatChange();
    const auto lost = [&] {
        return obj.account().sums().pre.lost[static_cast<std::size_t>(RZFrameLoss::FormatChanged)];
    };
    const std::uint64_t before = lost();
    obj.tryWriteBuffersFrom(list.get(), 100, NO);
    EXPECT_EQ(obj.getRingBufferSize(NO), 0U);
    EXPECT_EQ(lost(), before + 100);
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ABlockAcrossAChangeThatIsTakenBackIsStored) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, 400);
    obj.noteRenderBegins();
    obj.beginFormatChange();
    obj.takeBackFormatChange();
    obj.tryWriteBuffersFrom(list.get(), 100, NO);
    EXPECT_EQ(obj.getRingBufferSize(NO), 400U);
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, WriteWhileNotCapturingTakesNothingAndAnswersYes) {
    obj.stopCapture();
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, 400);
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100, NO));
    EXPECT_THAT(obj.bufferList(), IsEmpty());
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, WriteOfAnEmptyOrMissingListAnswersYes) {
    auto list = OwnedBufferList::planar(0, 0);
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100, NO));
    EXPECT_TRUE(obj.tryWriteBuffersFrom(nullptr, 100, NO));
    EXPECT_THAT(obj.bufferList(), IsEmpty());
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, WriteMakesOneBufferForEachOfTheList) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 3));
    auto list = OwnedBufferList::planar(3, 256);
    obj.tryWriteBuffersFrom(list.get(), 64, NO);
    ASSERT_EQ(3U, obj.bufferList().size());
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(256U, queued(NO, i));
    }
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, WrittenSizeComesFromTheBuffersOwnChannelCount) {
    // Mono buffers under a description that says interleaved stereo: 8 bytes a frame.
    obj.setStreamDesc(stream_formats::floatInterleaved(48000, 2));
    auto list = OwnedBufferList::interleaved(1, 1024);
    obj.tryWriteBuffersFrom(list.get(), 64, NO);
    EXPECT_EQ(256U, queued(NO));
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, WrittenSizeIsCountedInBits) {
    AudioStreamBasicDescription desc = stream_formats::int16Interleaved(48000, 1);
    desc.mBitsPerChannel = 12;
    obj.setStreamDesc(desc);
    auto list = OwnedBufferList::interleaved(1, 1024);
    obj.tryWriteBuffersFrom(list.get(), 5, NO);
    EXPECT_EQ(7U, queued(NO)) << "60 bits make 7 whole bytes";
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, BlockLargerThanItsBufferIsReportedAndDropped) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, 399);
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100, NO));
    EXPECT_EQ(0U, queued(NO));
    expectOneFault(kWrite, 2, 109,
                   "[buffer] [" + self() + "] [0] write size mis match. record: 400, input: 399");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, FailedBufferDoesNotStopTheOthers) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 3));
    OwnedBufferList list({{1, 400}, {1, 100}, {1, 400}});
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100, NO));
    ASSERT_EQ(3U, obj.bufferList().size());
    EXPECT_EQ(400U, queued(NO, 0));
    EXPECT_EQ(0U, queued(NO, 1));
    EXPECT_EQ(400U, queued(NO, 2));
    expectOneFault(kWrite, 2, 109,
                   "[buffer] [" + self() + "] [1] write size mis match. record: 400, input: 100");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, RefusedBlockIsReportedWithWhatTheRingHolds) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200000);
    for (int i = 0; i < 2; ++i) {
        obj.tryWriteBuffersFrom(list.get(), 100000, YES);
    }
    EXPECT_THAT(receiver->events(), IsEmpty());
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100000, YES));
    EXPECT_EQ(400000U, queued(YES));
    expectOneFault(
        kWrite, 2, 111,
        "[buffer] [" + self() + "] [0] write size is zero. dataSize: 200000 and available: 400000");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, BufferWithoutMemoryIsReportedAsRefused) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200);
    list.buffer().mData = nullptr;
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 100, NO));
    expectOneFault(
        kWrite, 2, 111,
        "[buffer] [" + self() + "] [0] write size is zero. dataSize: 200 and available: 0");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, BlockOfNoFramesIsReportedAsRefused) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200);
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 0, NO));
    expectOneFault(
        kWrite, 2, 111,
        "[buffer] [" + self() + "] [0] write size is zero. dataSize: 0 and available: 0");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest,
       AbsurdFrameCountIsRefusedWithoutReadingBeyondTheBuffer) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200);
    EXPECT_TRUE(obj.tryWriteBuffersFrom(list.get(), 0x07FFFFFFU, NO));
    EXPECT_EQ(0U, queued(NO));
    ASSERT_EQ(1U, receiver->events().size());
    EXPECT_EQ(109U, receiver->events()[0].code);
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, SameFaultIsRaisedAndLoggedOncePerTenSeconds) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto list = OwnedBufferList::interleaved(2, 399);
    for (int i = 0; i < 100; ++i) {
        obj.tryWriteBuffersFrom(list.get(), 100, NO);
    }
    EXPECT_EQ(1U, receiver->events().size());
    EXPECT_EQ(1U, log.linesOf(kWrite).size());
    obj.tryWriteBuffersFrom(list.get(), 0, NO);
    EXPECT_EQ(2U, receiver->events().size()) << "another code is another fault";
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, FaultsOfTwoObjectsAreFilteredApart) {
    RZReplayAudioUnitObject other;
    other.setCallback(receiver);
    other.startCapture();
    for (RZReplayAudioUnitObject* const each : {&obj, &other}) {
        each->setStreamDesc(stream_formats::int16Interleaved(44100, 2));
        auto list = OwnedBufferList::interleaved(2, 1);
        each->tryWriteBuffersFrom(list.get(), 100, NO);
    }
    EXPECT_EQ(2U, receiver->events().size());
}

// Reading.

TEST_F(RZReplayAudioUnitObjectDataPathTest, ReadAnswersWhatWasWritten) {
    for (const BOOL post : {NO, YES}) {
        obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
        auto in = OwnedBufferList::interleaved(2, 400);
        in.fillRising<SInt16>(1, 3);
        obj.tryWriteBuffersFrom(in.get(), 100, post);
        auto out = OwnedBufferList::interleaved(2, 400);
        EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 100, post));
        EXPECT_EQ(in.copyOf<SInt16>(), out.copyOf<SInt16>());
        EXPECT_EQ(0U, queued(post));
    }
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, BlocksOfOtherSizesComeOutInOrder) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto in = OwnedBufferList::interleaved(1, 600);
    in.fillRising<SInt16>(0, 1);
    obj.tryWriteBuffersFrom(in.get(), 300, NO);
    auto out = OwnedBufferList::interleaved(1, 200);
    for (const int first : {0, 100, 200}) {
        EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 100, NO));
        EXPECT_EQ(first, out.samples<SInt16>()[0]);
        EXPECT_EQ(first + 99, out.samples<SInt16>()[99]);
    }
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, UnderrunGivesAWholeBlockOfSilenceAndKeepsWhatIsThere) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto in = OwnedBufferList::interleaved(1, 198);
    in.fillBytes(1);
    obj.tryWriteBuffersFrom(in.get(), 99, NO);
    auto out = OwnedBufferList::interleaved(1, 200);
    out.fillBytes(9);
    EXPECT_FALSE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_THAT(out.copyOf<SInt16>(), Each(0));
    EXPECT_EQ(198U, queued(NO));
    EXPECT_THAT(receiver->events(), IsEmpty()) << "an underrun is no fault";
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ReadOfAnEmptyOrMissingListAnswersNo) {
    auto list = OwnedBufferList::planar(0, 0);
    EXPECT_FALSE(obj.tryReadBuffersTo(list.get(), 100, NO));
    EXPECT_FALSE(obj.tryReadBuffersTo(nullptr, 100, YES));
    EXPECT_THAT(receiver->events(), IsEmpty());
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, PostReadTakesThePendingMarkEvenWithoutBuffers) {
    obj.setPendingCleanPostRingBuffer(YES);
    auto list = OwnedBufferList::planar(0, 0);
    obj.tryReadBuffersTo(list.get(), 100, YES);
    EXPECT_FALSE(obj.pendingCleanPostRingBuffer());
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, PreReadLeavesThePendingMarkAndCleansNothing) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200);
    obj.tryWriteBuffersFrom(list.get(), 100, NO);
    obj.tryWriteBuffersFrom(list.get(), 100, YES);
    obj.setPendingCleanPostRingBuffer(YES);
    EXPECT_TRUE(obj.tryReadBuffersTo(list.get(), 100, NO));
    EXPECT_TRUE(obj.pendingCleanPostRingBuffer());
    EXPECT_EQ(200U, queued(YES));
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, FirstPostReadAfterAStartDropsStalePostPCMAndIsSilent) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    auto in = OwnedBufferList::planar(2, 256);
    in.fillBytes(1);
    obj.tryWriteBuffersFrom(in.get(), 64, YES);
    obj.tryWriteBuffersFrom(in.get(), 64, NO);
    obj.stopCapture();
    obj.startCapture();
    auto out = OwnedBufferList::planar(2, 256);
    out.fillBytes(9);
    EXPECT_FALSE(obj.tryReadBuffersTo(out.get(), 64, YES));
    EXPECT_THAT(out.copyOf<float>(0), Each(0.0F));
    EXPECT_THAT(out.copyOf<float>(1), Each(0.0F));
    for (const std::size_t i : {0U, 1U}) {
        EXPECT_EQ(0U, queued(YES, i));
        EXPECT_EQ(256U, queued(NO, i)) << "the pre side is never cleaned";
    }
    obj.tryWriteBuffersFrom(in.get(), 64, YES);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 64, YES)) << "only the first one";
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ReadingWorksWhileNotCapturing) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200);
    obj.tryWriteBuffersFrom(list.get(), 100, NO);
    obj.stopCapture();
    EXPECT_TRUE(obj.tryReadBuffersTo(list.get(), 100, NO));
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, MoreBuffersThanWereWrittenAreSilentAndReportedOnce) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    auto in = OwnedBufferList::planar(1, 256);
    in.fill<float>({0.5F});
    auto out = OwnedBufferList::planar(2, 256);
    for (int i = 0; i < 3; ++i) {
        obj.tryWriteBuffersFrom(in.get(), 64, NO);
        out.fillBytes(9);
        EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 64, NO)) << "one buffer got sound";
        EXPECT_THAT(out.copyOf<float>(0), Each(0.5F));
        EXPECT_THAT(out.copyOf<float>(1), Each(0.0F));
    }
    expectOneFault(kRead, 3, 110,
                   "[buffer] [" + self() + "] read with diff buffer number. read: 2, write: 1");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ReadBeforeAnyWriteIsSilentAndReported) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto out = OwnedBufferList::interleaved(1, 200);
    out.fillBytes(9);
    EXPECT_FALSE(obj.tryReadBuffersTo(out.get(), 100, YES));
    EXPECT_THAT(out.copyOf<SInt16>(), Each(0));
    expectOneFault(kRead, 3, 110,
                   "[buffer] [" + self() + "] read with diff buffer number. read: 1, write: 0");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ReadersBufferThatIsTooSmallIsSilentAndReported) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 2));
    auto in = OwnedBufferList::interleaved(2, 400);
    in.fillBytes(1);
    obj.tryWriteBuffersFrom(in.get(), 100, NO);
    auto out = OwnedBufferList::interleaved(2, 399);
    out.fillBytes(9);
    EXPECT_FALSE(obj.tryReadBuffersTo(out.get(), 100, NO));
    EXPECT_THAT(out.copyOf<char>(), Each(0));
    EXPECT_EQ(400U, queued(NO)) << "nothing is taken";
    expectOneFault(kRead, 3, 109,
                   "[buffer] [" + self() +
                       "] [0] read size mis match. record: 400, , target: 400, input: 399");
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, LargerReadersBufferKeepsItsRest) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto in = OwnedBufferList::interleaved(1, 20);
    in.fillBytes(1);
    obj.tryWriteBuffersFrom(in.get(), 10, NO);
    auto out = OwnedBufferList::interleaved(1, 24);
    out.fillBytes(9);
    EXPECT_TRUE(obj.tryReadBuffersTo(out.get(), 10, NO));
    EXPECT_EQ(0x0101, out.samples<SInt16>()[9]);
    EXPECT_EQ(0x0909, out.samples<SInt16>()[10]);
}

TEST_F(RZReplayAudioUnitObjectDataPathTest, ReadersBufferWithoutMemoryDoesNoHarm) {
    obj.setStreamDesc(stream_formats::int16Interleaved(44100, 1));
    auto list = OwnedBufferList::interleaved(1, 200);
    obj.tryWriteBuffersFrom(list.get(), 100, NO);
    list.buffer().mData = nullptr;
    EXPECT_FALSE(obj.tryReadBuffersTo(list.get(), 100, NO));
    EXPECT_EQ(200U, queued(NO));
    obj.setPendingCleanPostRingBuffer(YES);
    EXPECT_FALSE(obj.tryReadBuffersTo(list.get(), 100, YES));
}
