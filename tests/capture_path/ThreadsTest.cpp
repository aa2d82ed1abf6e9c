#include <chrono>
#include <thread>

#include "CapturePathFixture.h"
#include "RZAudioRecordStat.h"
#include "RZReplayVolumeController.h"

// The device renders on its own thread while everything else happens on others.

namespace {

/// Renders without a pause for as long as it lives.
class DeviceThread {
  public:
    DeviceThread()
        : thread_([this] {
              std::uint64_t now = 1'000'000'000;
              while (!isOver_) {
                  EXPECT_EQ(TQManualDevicePump(480, now), 0);
                  now += 10'000'000;
                  ++slices_;
              }
          }) {}
    ~DeviceThread() {
        isOver_ = true;
        thread_.join();
    }
    DeviceThread(const DeviceThread&) = delete;
    DeviceThread& operator=(const DeviceThread&) = delete;

    /// Until that many more slices have been rendered; bounded.
    void waitForSlices(int count) const {
        const int end = slices_ + count;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (slices_ < end && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_GE(slices_, end);
    }

  private:
    std::atomic<bool> isOver_{false};
    std::atomic<int> slices_{0};
    std::thread thread_;
};

class LastBlock : public RZReplayAudioRecorderListener<LastBlock> {
  public:
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) {
        if (info.volume() == 0.0) {
            sample = static_cast<const std::int16_t*>(pcm->mBuffers[0].mData)[100];
            ++mixes;
        }
    }
    [[nodiscard]] std::uint64_t getPCMDataType() { return 3; }
    std::atomic<int> sample{0};
    std::atomic<int> mixes{0};
};

struct Threads : CapturePath {
    static constexpr int kRounds = 40;
    std::shared_ptr<LastBlock> last = std::make_shared<LastBlock>();
    void SetUp() override {
        CapturePath::SetUp();
        logs.reset();  // lines of thousands of slices
    }
    void record() {
        ASSERT_TRUE(collect().startAudioStreamCollect(last));
        drainRecorder();
        ASSERT_TRUE(manager().isCapturing());
    }
    void TearDown() override {
        collect().stopAudioStreamCollect(last);
        drainRecorder();
        EXPECT_FALSE(manager().isCapturing());
        CapturePath::TearDown();
    }
    /// The capture path still works: what one steady host plays is in the mix.
    void expectInMix(const DeviceThread& device, const HostUnit& host) {
        // What the others have left in their rings is heard first, however much it is.
        const double wanted = host.sound.value * 32767;
        for (int tries = 0; tries < 100 && std::abs(last->sample - wanted) > 4; ++tries) {
            device.waitForSlices(60);
        }
        EXPECT_NEAR(last->sample, wanted, 4);
    }
};

TEST_F(Threads, UnitsComeAndGoWhileTheDeviceRenders) {
    HostUnit steady;
    steady.sound.value = 0.125;
    steady.play();
    record();
    const DeviceThread device;
    for (int i = 0; i < kRounds; ++i) {
        HostUnit host;
        host.sound.format = i % 2 == 0 ? stream_formats::floatPlanar(44100, 2)
                                       : stream_formats::int16Interleaved(48000, 1);
        host.play(i % 3 == 0 ? kAudioUnitScope_Output : kAudioUnitScope_Input);
        device.waitForSlices(1);
        host.stop();
        host.start();
    }
    EXPECT_EQ(manager().getUnitObjListWithCopy().size(), 1U);
    expectInMix(device, steady);
}

TEST_F(Threads, GraphsComeAndGoWhileTheDeviceRenders) {
    HostUnit steady;
    steady.sound.value = 0.125;
    steady.play();
    record();
    const DeviceThread device;
    for (int i = 0; i < kRounds; ++i) {
        HostGraph host;
        host.play();
        device.waitForSlices(1);
        host.sound.value = 0.0625;
        AUGraphUpdate(host.graph(), nullptr);
        AUGraphStop(host.graph());
    }
    EXPECT_EQ(manager().getUnitObjListWithCopy().size(), 1U);
    expectInMix(device, steady);
}

TEST_F(Threads, CaptureStartsAndStopsWhileTheDeviceRenders) {
    HostUnit steady;
    steady.sound.value = 0.125;
    steady.play();
    const DeviceThread device;
    for (int i = 0; i < kRounds; ++i) {
        record();
        device.waitForSlices(1);
        collect().stopAudioStreamCollect(last);
        drainRecorder();
        ASSERT_FALSE(manager().lastStopError());
    }
    record();
    expectInMix(device, steady);
}

TEST_F(Threads, NoticesArriveWhileTheDeviceRenders) {
    HostUnit steady;
    steady.sound.value = 0.125;
    // A new route makes the library read every unit's device side, which is what this one records.
    steady.play(kAudioUnitScope_Output);
    record();
    const DeviceThread device;
    NSNotificationCenter& centre = NSNotificationCenter::defaultCenter();
    std::thread routes([&] {
        for (int i = 0; i < kRounds; ++i) {
            centre.postNotificationName("AVAudioSessionRouteChangeNotification");
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        for (const long type : {1L, 0L}) {
            const dispatch_queue_t queue = manager().getAsyncQueue();
            centre.postNotificationName("AVAudioSessionInterruptionNotification", nullptr,
                                        {{"AVAudioSessionInterruptionTypeKey", type}});
            dispatch_sync(queue, [] {});
        }
    }
    routes.join();
    EXPECT_TRUE(manager().isCapturing());
    expectInMix(device, steady);
}

TEST_F(Threads, LevelsAndStatisticsAreUsedWhileTheDeviceRenders) {
    HostUnit steady;
    steady.sound.value = 0.125;
    steady.play();
    record();
    const DeviceThread device;
    RZReplayVolumeController controller;
    const RZReplayVolumeDuckingParam on(YES);
    const RZReplayVolumeDuckingParam off(NO);
    const RZAudioRecordStat statistics;
    for (int i = 0; i < kRounds; ++i) {
        EXPECT_EQ(controller.enableDucking(&on), 0);
        controller.updateDuckingVolume(i % 2 == 0 ? 0.0F : -60.0F, YES);
        device.waitForSlices(1);
        EXPECT_EQ(statistics.getHookAudioTrackInfoList().size(), 1U);
        EXPECT_EQ(statistics.getHookAudioTrackStat(1)->audio_track_id(), 1U);
        EXPECT_EQ(controller.enableDucking(&off), 0);
    }
    expectInMix(device, steady);
}

/// Render notify of the private output: tells that a slice of the private graph has begun.
OSStatus tellBeginning(void* refCon, AudioUnitRenderActionFlags* flags,
                       const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 /*frames*/,
                       AudioBufferList* /*ioData*/) {
    if ((*flags & kAudioUnitRenderAction_PreRender) != 0) {
        *static_cast<std::atomic<bool>*>(refCon) = true;
    }
    return noErr;
}

TEST_F(Threads, AnUpdateOfThePrivateGraphDoesNotWaitForASliceThatWaitsForIt) {
    using Clock = std::chrono::steady_clock;
    HostUnit steady;
    steady.play();
    HostUnit host;
    host.prepare();
    record();
    pump();
    std::atomic<bool> hasBegun{false};
    ASSERT_EQ(AudioUnitAddRenderNotify(manager().outUnit(), tellBeginning, &hasBegun), 0);
    // One that was not held up is enough: the machine may hold up any of them.
    Clock::duration shortest = std::chrono::hours(1);
    for (int i = 0; i < 20; ++i) {
        std::thread device;
        Clock::time_point updated;
        platform.watch("AUGraphUpdate", [&](const auto&) {
            // The lock that the slice is going to want is held here.
            hasBegun = false;
            device = std::thread([this] { pump(); });
            while (!hasBegun) {
                std::this_thread::yield();
            }
            updated = Clock::now();
        });
        host.start();
        shortest = std::min(shortest, Clock::now() - updated);
        device.join();
        platform.watch("AUGraphUpdate", {});
        host.stop();
        pump();
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(1));
}

}  // namespace
