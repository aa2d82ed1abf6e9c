#include "RZReplayAudioUnitObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "EventRecorder.h"
#include "LogCapture.h"
#include "StreamFormats.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pointer;

namespace {

constexpr const char* kFile = "Classes/RZReplayAudioUnitObject";

/// A handle is only an identity to a capture object.
const AudioUnit kUnit = reinterpret_cast<AudioUnit>(0x1000);
const AUGraph kGraph = reinterpret_cast<AUGraph>(0x2000);

OSStatus hostCallback(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32,
                      AudioBufferList*) {
    return 0;
}

/// A receiver that has everything but the event method.
class DeafReceiver : public RZReplayAudioRecorderInternalListener<DeafReceiver> {
  public:
    std::int32_t getPCMDataType() override { return 1; }
};

}  // namespace

TEST(RZReplayAudioUnitObjectTest, PlainObjectIsAtRest) {
    const RZReplayAudioUnitObject obj;
    EXPECT_FALSE(obj.isStarted());
    EXPECT_FALSE(obj.isCapturing());
    EXPECT_FALSE(obj.input_enableIO());
    EXPECT_FALSE(obj.needFormatToS16());
    EXPECT_FALSE(obj.pendingCleanPostRingBuffer());
    EXPECT_EQ(0, obj.trackId());
    EXPECT_EQ(-1, obj.inNode());
    EXPECT_EQ(nullptr, obj.inUnit());
    EXPECT_EQ(nullptr, obj.auGraph());
    EXPECT_EQ(nullptr, obj.callback());
    EXPECT_EQ(nullptr, obj.origin_inputProc());
    EXPECT_EQ(nullptr, obj.origin_inputProcRefCon());
    EXPECT_EQ("", obj.key());
    EXPECT_THAT(obj.bufferList(), IsEmpty());
    ASSERT_NE(nullptr, obj.bufferLock());
    EXPECT_EQ(10000, obj.eventFilter().Interval());
    EXPECT_EQ(0U, obj.compDesc().componentType);
    EXPECT_EQ(0.0, obj.streamDesc().mSampleRate);
    EXPECT_EQ(0U, obj.s16FormatStreamDesc().mBytesPerFrame);
    ASSERT_NE(nullptr, obj.asbdInfo());
    EXPECT_EQ(0, obj.asbdInfo()->trackId());
    EXPECT_EQ(0.0, obj.asbdInfo()->volume());
}

TEST(RZReplayAudioUnitObjectTest, MadeForAUnitItKnowsUnitAndTrack) {
    const RZReplayAudioUnitObject obj(kUnit, 5);
    EXPECT_EQ(kUnit, obj.inUnit());
    EXPECT_EQ(5, obj.trackId());
    EXPECT_EQ(5, obj.asbdInfo()->trackId());
    EXPECT_EQ(-1, obj.inNode());
    EXPECT_EQ(10000, obj.eventFilter().Interval());
}

TEST(RZReplayAudioUnitObjectTest, PropertiesKeepWhatIsSet) {
    RZReplayAudioUnitObject obj;
    obj.setIsStarted(YES);
    obj.setIsCapturing(YES);
    obj.setInput_enableIO(YES);
    obj.setNeedFormatToS16(YES);
    obj.setPendingCleanPostRingBuffer(YES);
    obj.setTrackId(3);
    obj.setInNode(9);
    obj.setInUnit(kUnit);
    obj.setAuGraph(kGraph);
    int refCon = 0;
    obj.setOriginCallback({hostCallback, &refCon});
    const auto info = std::make_shared<RZReplayASBDInfo>();
    obj.setAsbdInfo(info);
    obj.setKey("a key");
    obj.setCompDesc({1, 2, 3, 4, 5});
    obj.setStreamDesc(stream_formats::floatPlanar(48000, 2));
    obj.setS16FormatStreamDesc(stream_formats::int16Interleaved(22050, 1));
    EXPECT_TRUE(obj.isStarted());
    EXPECT_TRUE(obj.isCapturing());
    EXPECT_TRUE(obj.input_enableIO());
    EXPECT_TRUE(obj.needFormatToS16());
    EXPECT_TRUE(obj.pendingCleanPostRingBuffer());
    EXPECT_EQ(3, obj.trackId());
    EXPECT_EQ(9, obj.inNode());
    EXPECT_EQ(kUnit, obj.inUnit());
    EXPECT_EQ(kGraph, obj.auGraph());
    EXPECT_EQ(&hostCallback, obj.origin_inputProc());
    EXPECT_EQ(&refCon, obj.origin_inputProcRefCon());
    EXPECT_EQ(&hostCallback, obj.originCallback().inputProc);
    EXPECT_EQ(&refCon, obj.originCallback().inputProcRefCon);
    EXPECT_EQ(info, obj.asbdInfo());
    EXPECT_EQ("a key", obj.key());
    EXPECT_EQ(5U, obj.compDesc().componentFlagsMask);
    EXPECT_EQ(4U, obj.streamDesc().mBytesPerFrame);
    EXPECT_EQ(22050.0, obj.s16FormatStreamDesc().mSampleRate);
}

TEST(RZReplayAudioUnitObjectTest, HalvesOfTheHostsCallbackAreSetAlone) {
    RZReplayAudioUnitObject obj(kUnit, 1);
    int mark = 0;
    obj.setOrigin_inputProc(hostCallback);
    EXPECT_EQ(&hostCallback, obj.origin_inputProc());
    EXPECT_EQ(nullptr, obj.origin_inputProcRefCon());
    obj.setOrigin_inputProcRefCon(&mark);
    EXPECT_EQ(&hostCallback, obj.originCallback().inputProc);
    EXPECT_EQ(&mark, obj.originCallback().inputProcRefCon);
}

TEST(RZReplayAudioUnitObjectTest, BuffersAndTheirLockAreTheOnesThatAreSet) {
    RZReplayAudioUnitObject obj(kUnit, 1);
    const auto lock = std::make_shared<NSRecursiveLock>();
    obj.setBufferLock(lock);
    EXPECT_EQ(lock, obj.bufferLock());
    const auto buffer = std::make_shared<RZReplayAudioUnitBuffer>();
    obj.setBufferList({buffer});
    EXPECT_THAT(obj.bufferList(), ElementsAre(buffer));
    EXPECT_EQ(buffer.get(), obj.getOrCreateBufferAt(0));
}

TEST(RZReplayAudioUnitObjectTest, IsAvailableNeedsRateChannelsFrameSizeAndUnit) {
    const AudioStreamBasicDescription good = stream_formats::int16Interleaved(44100, 2);
    RZReplayAudioUnitObject obj(kUnit, 1);
    EXPECT_FALSE(obj.isAvailable()) << "no description yet";
    obj.setStreamDesc(good);
    EXPECT_TRUE(obj.isAvailable());
    for (const Float64 rate : {0.0, -44100.0}) {
        AudioStreamBasicDescription desc = good;
        desc.mSampleRate = rate;
        obj.setStreamDesc(desc);
        EXPECT_FALSE(obj.isAvailable());
    }
    AudioStreamBasicDescription desc = good;
    desc.mChannelsPerFrame = 0;
    obj.setStreamDesc(desc);
    EXPECT_FALSE(obj.isAvailable());
    desc = good;
    desc.mBytesPerFrame = 0;
    obj.setStreamDesc(desc);
    EXPECT_FALSE(obj.isAvailable());
    obj.setStreamDesc(good);
    obj.setInUnit(nullptr);
    EXPECT_FALSE(obj.isAvailable());
}

TEST(RZReplayAudioUnitObjectTest, StartAndStopOfTheUnitSetItsFlagOnly) {
    RZReplayAudioUnitObject obj;
    obj.startAudioUnit();
    obj.startAudioUnit();
    EXPECT_TRUE(obj.isStarted());
    EXPECT_FALSE(obj.isCapturing());
    obj.stopAudioUnit();
    obj.stopAudioUnit();
    EXPECT_FALSE(obj.isStarted());
}

TEST(RZReplayAudioUnitObjectTest, StartingCaptureAsksForStalePostPCMToBeDroppedOnce) {
    RZReplayAudioUnitObject obj;
    obj.startCapture();
    EXPECT_TRUE(obj.isCapturing());
    EXPECT_TRUE(obj.pendingCleanPostRingBuffer());
    EXPECT_FALSE(obj.isStarted());
    obj.setPendingCleanPostRingBuffer(NO);
    obj.startCapture();
    EXPECT_FALSE(obj.pendingCleanPostRingBuffer()) << "a second start changes nothing";
}

TEST(RZReplayAudioUnitObjectTest, StoppingCaptureKeepsTheRings) {
    RZReplayAudioUnitObject obj;
    obj.startCapture();
    char bytes[4] = {1, 2, 3, 4};
    obj.getOrCreateBufferAt(0)->writeAudioBuffer({1, 4, bytes}, 4, NO);
    obj.stopCapture();
    EXPECT_FALSE(obj.isCapturing());
    EXPECT_EQ(4U, obj.getRingBufferSize(NO));
    obj.stopCapture();
    EXPECT_FALSE(obj.isCapturing());
}

TEST(RZReplayAudioUnitObjectTest, BuffersAreAddedOneAtATimeAndLogged) {
    const LogCapture log;
    RZReplayAudioUnitObject obj;
    const auto first = obj.getOrCreateBufferAt(0);
    const auto second = obj.getOrCreateBufferAt(1);
    EXPECT_NE(first, second);
    EXPECT_EQ(first, obj.getOrCreateBufferAt(0));
    EXPECT_EQ(second, obj.getOrCreateBufferAt(1));
    EXPECT_THAT(obj.bufferList(), ElementsAre(Pointer(first), Pointer(second)));
    const char* const function = "-[RZReplayAudioUnitObject getOrCreateBufferAt:]";
    EXPECT_THAT(
        log.lines(),
        ElementsAre(IsLogLine(kFile, function, 2, "[buffer] add one buffer, new count: 1"),
                    IsLogLine(kFile, function, 2, "[buffer] add one buffer, new count: 2")));
}

TEST(RZReplayAudioUnitObjectTest, IndexFarBeyondTheEndAppendsExactlyOne) {
    RZReplayAudioUnitObject obj;
    const auto buffer = obj.getOrCreateBufferAt(5);
    EXPECT_THAT(obj.bufferList(), ElementsAre(Pointer(buffer)));
    EXPECT_EQ(buffer, obj.getOrCreateBufferAt(0));
    EXPECT_NE(buffer, obj.getOrCreateBufferAt(5));
    EXPECT_EQ(2U, obj.bufferList().size());
}

TEST(RZReplayAudioUnitObjectTest, NegativeIndexNeverReachesOutsideTheList) {
    RZReplayAudioUnitObject obj;
    obj.getOrCreateBufferAt(0);
    EXPECT_NE(nullptr, obj.getOrCreateBufferAt(-1));
}

TEST(RZReplayAudioUnitObjectTest, NewBuffersGetTheStoredParameters) {
    RZReplayAudioUnitObject obj;
    RZReplayVolumeDuckingParam ducking(YES);
    ducking.setHoldTime(3.0F);
    RZReplayVolumeCompressorParam compressor(YES);
    compressor.setThreshold(-20.0F);
    obj.setDuckingParam(&ducking);
    obj.setCompressorParam(&compressor);
    // A copy is stored: what becomes of the host's record later does not matter.
    ducking.setHoldTime(9.0F);
    compressor.setThreshold(-9.0F);
    const auto* const controller = obj.getOrCreateBufferAt(0)->volumeController();
    EXPECT_TRUE(controller->GetDuckingParams().enable);
    EXPECT_EQ(3.0F, controller->GetDuckingParams().holdTime);
    EXPECT_TRUE(controller->GetCompressorParams().enable);
    EXPECT_EQ(-20.0F, controller->GetCompressorParams().threshold);
}

TEST(RZReplayAudioUnitObjectTest, ParametersReachEveryExistingBuffer) {
    RZReplayAudioUnitObject obj;
    obj.getOrCreateBufferAt(0);
    obj.getOrCreateBufferAt(1);
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    obj.setDuckingParam(&ducking);
    obj.setCompressorParam(&compressor);
    for (const auto& buffer : obj.bufferList()) {
        EXPECT_TRUE(buffer->volumeController()->GetDuckingParams().enable);
        EXPECT_TRUE(buffer->volumeController()->GetCompressorParams().enable);
    }
}

TEST(RZReplayAudioUnitObjectTest, NullParametersAreStoredAsNoneAndChangeNoBuffer) {
    RZReplayAudioUnitObject obj;
    const RZReplayVolumeDuckingParam ducking(YES);
    const RZReplayVolumeCompressorParam compressor(YES);
    obj.setDuckingParam(&ducking);
    obj.setCompressorParam(&compressor);
    obj.getOrCreateBufferAt(0);
    obj.setDuckingParam(nullptr);
    obj.setCompressorParam(nullptr);
    EXPECT_TRUE(obj.bufferList()[0]->volumeController()->GetDuckingParams().enable);
    EXPECT_TRUE(obj.bufferList()[0]->volumeController()->GetCompressorParams().enable);
    const auto* const fresh = obj.getOrCreateBufferAt(1)->volumeController();
    EXPECT_FALSE(fresh->GetDuckingParams().enable);
    EXPECT_FALSE(fresh->GetCompressorParams().enable);
}

TEST(RZReplayAudioUnitObjectTest, LevelsAndTheStreamsRateReachEveryBuffer) {
    RZReplayAudioUnitObject obj;
    AudioStreamBasicDescription desc = stream_formats::int16Interleaved(44100.9, 2);
    obj.setStreamDesc(desc);
    obj.getOrCreateBufferAt(0);
    obj.getOrCreateBufferAt(1);
    obj.updateDuckingVolume(-12.0F, YES);
    for (const auto& buffer : obj.bufferList()) {
        EXPECT_EQ(-12.0F, buffer->volumeController()->DuckingVolume());
        EXPECT_EQ(44100, buffer->volumeController()->SampleRate()) << "truncated";
    }
    desc.mSampleRate = 22050;
    obj.setStreamDesc(desc);
    obj.updateCompressorVolume(0.1F, NO);
    for (const auto& buffer : obj.bufferList()) {
        EXPECT_NEAR(-20.0F, buffer->volumeController()->CompressorVolume(), 1e-4);
        EXPECT_EQ(22050, buffer->volumeController()->SampleRate());
    }
}

TEST(RZReplayAudioUnitObjectTest, RingSizeIsThatOfTheFirstBuffer) {
    RZReplayAudioUnitObject obj;
    EXPECT_EQ(0U, obj.getRingBufferSize(NO));
    EXPECT_EQ(0U, obj.getRingBufferSize(YES));
    char bytes[8] = {};
    obj.getOrCreateBufferAt(0)->writeAudioBuffer({1, 8, bytes}, 3, NO);
    obj.getOrCreateBufferAt(0)->writeAudioBuffer({1, 8, bytes}, 5, YES);
    obj.getOrCreateBufferAt(1)->writeAudioBuffer({1, 8, bytes}, 8, NO);
    EXPECT_EQ(3U, obj.getRingBufferSize(NO));
    EXPECT_EQ(5U, obj.getRingBufferSize(YES));
}

TEST(RZReplayAudioUnitObjectTest, InfoFollowsTheFormatThatIsReadAndKeepsItsTrack) {
    RZReplayAudioUnitObject obj(kUnit, 4);
    obj.setStreamDesc(stream_formats::floatInterleaved(48000, 2));
    obj.setS16FormatStreamDesc(stream_formats::int16Interleaved(48000, 2));
    obj.updateAsbdInfo();
    EXPECT_EQ(8, obj.asbdInfo()->bytesPerFrame());
    EXPECT_EQ(32, obj.asbdInfo()->bitsPerChannel());
    EXPECT_EQ(1.0, obj.asbdInfo()->volume());
    EXPECT_EQ(4, obj.asbdInfo()->trackId());
    obj.setNeedFormatToS16(YES);
    obj.updateAsbdInfo();
    EXPECT_EQ(4, obj.asbdInfo()->bytesPerFrame());
    EXPECT_EQ(16, obj.asbdInfo()->bitsPerChannel());
    EXPECT_EQ(4, obj.asbdInfo()->trackId());
}

TEST(RZReplayAudioUnitObjectTest, EventsGoToTheCallbackUnchanged) {
    RZReplayAudioUnitObject obj;
    const auto receiver = std::make_shared<EventRecorder>();
    obj.setCallback(receiver);
    EXPECT_EQ(receiver, obj.callback());
    obj.onAudioRecordEvent(2, 109, "a message");
    obj.onAudioRecordEvent(2, 109, "a message");
    EXPECT_THAT(receiver->events(),
                ElementsAre(RecordedEvent{2, 109, "a message"}, RecordedEvent{2, 109, "a message"}))
        << "filtering is the raiser's business";
}

TEST(RZReplayAudioUnitObjectTest, EventsWithoutReceiverAreDropped) {
    RZReplayAudioUnitObject obj;
    obj.onAudioRecordEvent(2, 109, "nobody");
    obj.setCallback(std::make_shared<EventRecorder>());
    EXPECT_EQ(nullptr, obj.callback()) << "held weakly";
    obj.onAudioRecordEvent(2, 109, "gone");
    const auto deaf = std::make_shared<DeafReceiver>();
    obj.setCallback(deaf);
    obj.onAudioRecordEvent(2, 109, "not implemented");
    SUCCEED();
}

TEST(RZReplayAudioUnitObjectTest, BufferLockGuardsTheBufferList) {
    RZReplayAudioUnitObject obj;
    obj.bufferLock()->lock();
    std::atomic<bool> isThrough{false};
    std::thread other([&] {
        obj.getOrCreateBufferAt(0);
        isThrough = true;
    });
    // The lock is recursive: its holder gets on while the other thread must wait.
    obj.getOrCreateBufferAt(0);
    EXPECT_FALSE(isThrough);
    obj.bufferLock()->unlock();
    other.join();
    EXPECT_EQ(1U, obj.bufferList().size());
}
