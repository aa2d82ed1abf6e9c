#include <gtest/gtest.h>

#include "BufferLists.h"
#include "EventRecorder.h"
#include "RZReplayAudioUnitObject.h"
#include "StreamFormats.h"
#include "support/AllocationCounter.h"

// The data path allocates nothing once it has seen its largest block.

namespace {

class RZReplayAudioUnitObjectRealTimeTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!AllocationCounter::works()) {
            GTEST_SKIP() << "allocations cannot be counted in this build";
        }
        obj.setCallback(receiver);
        obj.startCapture();
        const RZReplayVolumeDuckingParam ducking(YES);
        const RZReplayVolumeCompressorParam compressor(YES);
        obj.setDuckingParam(&ducking);
        obj.setCompressorParam(&compressor);
    }
    /// One whole turn: the host's side, then the reader's.
    void turn() {
        obj.tryWriteBuffersFrom(in.get(), 512, NO);
        obj.processBuffer(in.get(), 512);
        obj.tryWriteBuffersFrom(in.get(), 512, YES);
        obj.updateAsbdInfo();
        obj.tryReadBuffersTo(out.get(), 512, YES);
        obj.tryReadBuffersTo(out.get(), 512, NO);
        sizes += obj.getRingBufferSize(NO) + obj.getRingBufferSize(YES);
    }
    void expectSilenceOfTheAllocator() {
        // The first post read only cleans, so the post ring grows once more after it.
        turn();
        turn();
        turn();
        const AllocationCounter counter;
        for (int i = 0; i < 1000; ++i) {
            turn();
        }
        EXPECT_EQ(0U, counter.count());
    }

    const std::shared_ptr<EventRecorder> receiver = std::make_shared<EventRecorder>();
    RZReplayAudioUnitObject obj;
    OwnedBufferList in = OwnedBufferList::planar(2, 2048);
    OwnedBufferList out = OwnedBufferList::planar(2, 2048);
    std::size_t sizes = 0;
};

}  // namespace

TEST_F(RZReplayAudioUnitObjectRealTimeTest, PlainBlocksAllocateNothing) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    expectSilenceOfTheAllocator();
    EXPECT_TRUE(receiver->events().empty());
}

TEST_F(RZReplayAudioUnitObjectRealTimeTest, ConvertedBlocksAllocateNothing) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    AudioStreamBasicDescription to = stream_formats::int16Interleaved(48000, 2);
    to.mBytesPerFrame = 2;
    obj.setS16FormatStreamDesc(to);
    obj.setNeedFormatToS16(YES);
    expectSilenceOfTheAllocator();
    EXPECT_TRUE(receiver->events().empty());
}

TEST_F(RZReplayAudioUnitObjectRealTimeTest, RecurringFaultsAllocateNothing) {
    // Every block is too large for its buffer, every read for the reader's, every format unknown.
    AudioStreamBasicDescription desc = stream_formats::floatPlanar(48000, 2);
    desc.mFormatFlags = kAudioFormatFlagIsBigEndian;
    desc.mBitsPerChannel = 64;
    desc.mBytesPerFrame = 8;
    obj.setStreamDesc(desc);
    expectSilenceOfTheAllocator();
    EXPECT_EQ(3U, receiver->events().size());
}

TEST_F(RZReplayAudioUnitObjectRealTimeTest, FullRingAllocatesNothing) {
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    while (receiver->events().empty()) {
        obj.tryWriteBuffersFrom(in.get(), 512, NO);
    }
    const AllocationCounter counter;
    for (int i = 0; i < 1000; ++i) {
        obj.tryWriteBuffersFrom(in.get(), 512, NO);
    }
    EXPECT_EQ(0U, counter.count());
}
