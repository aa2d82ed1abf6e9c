#include "CapturePathFixture.h"
#include "RZReplayVolumeController.h"
#include "support/AllocationCounter.h"

// Nothing on the way from a host's callback to the listener allocates once it is warm.

namespace {

/// Looks at what it gets and keeps none of it.
class Counter : public RZReplayAudioRecorderListener<Counter> {
  public:
    explicit Counter(std::uint64_t mask) : mask_(mask) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) {
        (info.volume() == 0.0 ? mixes : posts) += pcm->mNumberBuffers > 0 ? 1 : 0;
    }
    [[nodiscard]] std::uint64_t getPCMDataType() { return mask_; }
    std::atomic<int> mixes{0};
    std::atomic<int> posts{0};

  private:
    std::uint64_t mask_;
};

struct Case {
    const char* name;
    AudioStreamBasicDescription format;
    AudioUnitScope scope;
    std::uint64_t mask;
    bool isProcessing;
};

struct RealTime : CapturePath, testing::WithParamInterface<Case> {
    void SetUp() override {
        CapturePath::SetUp();
        logs.reset();  // a log callback may allocate as it likes
    }
};

TEST_P(RealTime, TheCapturePathAllocatesNothingOnceWarm) {
    if (!AllocationCounter::works()) {
        GTEST_SKIP() << "allocations cannot be counted in this build";
    }
    const Case& how = GetParam();
    HostUnit host;
    host.sound.format = how.format;
    host.play(how.scope);
    RZReplayVolumeController controller;
    const RZReplayVolumeDuckingParam ducking(how.isProcessing);
    const RZReplayVolumeCompressorParam compressor(how.isProcessing);
    ASSERT_EQ(controller.enableDucking(&ducking), 0);
    ASSERT_EQ(controller.enableCompressor(&compressor), 0);
    const auto counter = std::make_shared<Counter>(how.mask);
    ASSERT_TRUE(collect().startAudioStreamCollect(counter));
    drainRecorder();
    ASSERT_TRUE(manager().isCapturing());
    controller.updateDuckingVolume(0, YES);
    pump(20);
    const int mixes = counter->mixes;
    const int posts = counter->posts;
    std::size_t allocations = 0;
    {
        const AllocationCounter allocated;
        for (int i = 0; i < 200; ++i) {
            TQManualDevicePump(kFrames, hostTime);
            hostTime += 10'000'000;
        }
        allocations = allocated.count();
    }
    EXPECT_EQ(allocations, 0U);
    EXPECT_EQ(counter->mixes - mixes, (how.mask & 1) != 0 ? 200 : 0);
    EXPECT_GE(counter->posts - posts, (how.mask & 2) != 0 ? 190 : 0);
    EXPECT_EQ(host.sound.calls, 220);
    collect().stopAudioStreamCollect(counter);
    drainRecorder();
    controller.enableDucking(nullptr);
    controller.enableCompressor(nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, RealTime,
    testing::Values(
        Case{"float", stream_formats::floatInterleaved(48000, 2), kAudioUnitScope_Input, 3, false},
        Case{"floatPlanar", stream_formats::floatPlanar(44100, 2), kAudioUnitScope_Input, 3, true},
        Case{"int16", stream_formats::int16Interleaved(48000, 2), kAudioUnitScope_Input, 3, false},
        Case{"int16Mono", stream_formats::int16Interleaved(22050, 1), kAudioUnitScope_Input, 3,
             true},
        Case{"int16PreOnly", stream_formats::int16Interleaved(44100, 2), kAudioUnitScope_Input, 1,
             true},
        Case{"notify", stream_formats::int16Interleaved(48000, 2), kAudioUnitScope_Output, 3,
             true}),
    [](const auto& one) { return one.param.name; });

using StoppedUnit = CapturePath;

TEST_F(StoppedUnit, LeavesWhatIsReadWithoutAllocating) {
    if (!AllocationCounter::works()) {
        GTEST_SKIP() << "allocations cannot be counted in this build";
    }
    HostUnit host;
    const auto counter = std::make_shared<Counter>(3);
    ASSERT_TRUE(collect().startAudioStreamCollect(counter));
    drainRecorder();
    host.play();
    pump(20);
    for (int i = 0; i < 20; ++i) {
        host.stop();
        ASSERT_GT(manager().frameSums(1).pre.waiting, 0U);
        const int posts = counter->posts;
        std::size_t allocations = 0;
        {
            const AllocationCounter allocated;
            for (int slice = 0; slice < 3; ++slice) {
                TQManualDevicePump(kFrames, hostTime);
                hostTime += 10'000'000;
            }
            allocations = allocated.count();
        }
        EXPECT_EQ(allocations, 0U);
        EXPECT_GT(counter->posts, posts);
        EXPECT_EQ(manager().frameSums(1).pre.waiting, 0U);
        host.start();
        pump(2);
    }
    collect().stopAudioStreamCollect(counter);
    drainRecorder();
}

using RepeatedFault = CapturePath;

TEST_F(RepeatedFault, AllocatesOnlyWhenItIsReported) {
    if (!AllocationCounter::works()) {
        GTEST_SKIP() << "allocations cannot be counted in this build";
    }
    HostUnit host;
    host.play();
    const auto counter = std::make_shared<Counter>(3);
    ASSERT_TRUE(collect().startAudioStreamCollect(counter));
    drainRecorder();
    pump(5);
    // The ring fills up while nobody reads: (2, 111) on every block, told once.
    ASSERT_EQ(AUGraphStop(manager().mGraph()), 0);
    pump(300);
    const AllocationCounter allocated;
    for (int i = 0; i < 100; ++i) {
        TQManualDevicePump(kFrames, hostTime);
    }
    EXPECT_EQ(allocated.count(), 0U);
    collect().stopAudioStreamCollect(counter);
    drainRecorder();
}

}  // namespace
