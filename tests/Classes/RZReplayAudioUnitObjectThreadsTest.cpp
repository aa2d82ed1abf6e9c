#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "BufferLists.h"
#include "EventRecorder.h"
#include "RZReplayAudioUnitObject.h"
#include "StreamFormats.h"

// One writer and one reader on two threads, as the host's render thread and the private graph's;
// control threads change what they may meanwhile. The thread sanitizer checks these as well.

namespace {

/// Runs until the test says so; ends with the scope.
class Background {
  public:
    template <class Body>
    explicit Background(Body body)
        : thread_([this, body] {
              // At least once, however late it gets a core.
              do {
                  body();
              } while (!isDone_);
          }) {}
    ~Background() {
        isDone_ = true;
        thread_.join();
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

  private:
    std::atomic<bool> isDone_{false};
    std::thread thread_;
};

constexpr int kBlocks = 1500;

/// Waits for room: the ring refuses what goes beyond its ceiling, and this test loses nothing.
void writeRisingBlocks(RZReplayAudioUnitObject& obj, UInt32 frames) {
    auto in = OwnedBufferList::interleaved(1, frames * 4);
    SInt32 next = 1;
    for (int block = 0; block < kBlocks; ++block) {
        in.fillRising<SInt32>(next, 1);
        next += static_cast<SInt32>(frames);
        while (obj.getRingBufferSize(NO) > 300000) {
            std::this_thread::yield();
        }
        obj.tryWriteBuffersFrom(in.get(), frames, NO);
    }
}

/// Reads everything; the number of samples that were not the expected next one.
int readRisingBlocks(RZReplayAudioUnitObject& obj, UInt32 writtenFrames, UInt32 frames) {
    auto out = OwnedBufferList::interleaved(1, frames * 4);
    SInt32 next = 1;
    int wrong = 0;
    const SInt32 last = static_cast<SInt32>(writtenFrames) * kBlocks;
    while (next <= last) {
        if (!obj.tryReadBuffersTo(out.get(), frames, NO)) {
            std::this_thread::yield();
            continue;
        }
        for (const SInt32 sample : out.samples<SInt32>()) {
            wrong += sample == next++ ? 0 : 1;
        }
    }
    return wrong;
}

}  // namespace

TEST(RZReplayAudioUnitObjectThreadsTest, NothingIsLostOrTornWhileTheRingGrows) {
    RZReplayAudioUnitObject obj;
    obj.setStreamDesc(stream_formats::int32Interleaved(48000, 1));
    obj.startCapture();
    const auto receiver = std::make_shared<EventRecorder>();
    obj.setCallback(receiver);
    std::thread writer([&] { writeRisingBlocks(obj, 600); });
    EXPECT_EQ(0, readRisingBlocks(obj, 600, 200));
    writer.join();
    for (const RecordedEvent& event : receiver->events()) {
        EXPECT_EQ(110U, event.code) << "only reads ahead of the first write: " << event;
    }
}

TEST(RZReplayAudioUnitObjectThreadsTest, ParametersChangeWhileBlocksPass) {
    RZReplayAudioUnitObject obj;
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    AudioStreamBasicDescription s16 = stream_formats::int16Interleaved(48000, 2);
    s16.mBytesPerFrame = 2;
    obj.setS16FormatStreamDesc(s16);
    obj.startCapture();
    {
        const Background writer(
            [&, list = std::make_shared<OwnedBufferList>(OwnedBufferList::planar(2, 1024))] {
                list->fill<float>({0.5F}, 0);
                list->fill<float>({0.5F}, 1);
                obj.tryWriteBuffersFrom(list->get(), 256, NO);
                obj.processBuffer(list->get(), 256);
                obj.tryWriteBuffersFrom(list->get(), 256, YES);
            });
        const Background reader(
            [&, list = std::make_shared<OwnedBufferList>(OwnedBufferList::planar(2, 1024))] {
                obj.updateAsbdInfo();
                while (obj.tryReadBuffersTo(list->get(), 256, YES)) {
                }
                obj.tryReadBuffersTo(list->get(), 256, NO);
            });
        for (int i = 0; i < 400; ++i) {
            const RZReplayVolumeDuckingParam ducking(i % 2 == 0);
            const RZReplayVolumeCompressorParam compressor(i % 3 == 0);
            obj.setDuckingParam(&ducking);
            obj.setCompressorParam(&compressor);
            obj.updateDuckingVolume(static_cast<float>(-i % 60), YES);
            obj.updateCompressorVolume(0.1F, NO);
            obj.setNeedFormatToS16(i % 4 == 0);
            obj.stopCapture();
            obj.startCapture();
            obj.setOriginCallback({nullptr, &obj});
            obj.setStreamDesc(stream_formats::floatPlanar(i % 2 == 0 ? 48000 : 44100, 2));
        }
    }
    EXPECT_TRUE(obj.isCapturing());
    EXPECT_EQ(2U, obj.bufferList().size());
}

TEST(RZReplayAudioUnitObjectThreadsTest, ReceiverOfEventsMayGoWhileEventsAreRaised) {
    RZReplayAudioUnitObject obj;
    const Background raiser([&] { obj.onAudioRecordEvent(2, 109, "message"); });
    for (int i = 0; i < 1000; ++i) {
        const auto receiver = std::make_shared<EventRecorder>();
        obj.setCallback(receiver);
    }
    SUCCEED();
}
