#include "device/backends/HandoverBackend.h"

#include <gtest/gtest.h>

#include <AVFoundation/AVFoundation.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "device/Device.h"
#include "support/ProgramRunner.h"

namespace {

using namespace tqplatform;
using tqtest::eventually;

/// What happens to the made-up clock and the made-up device of a test, and what they are to do.
/// Both ask for blocks when the test says so; the device asks for one when it is started, too.
struct Scene {
    std::mutex mutex;
    std::vector<std::string> verbs;
    std::atomic<bool> isThere{true};
    std::atomic<bool> starts{true};
    DeviceFormat format{44100, 2, 1, 4096, 256};
    BackendHost* clock = nullptr;
    std::atomic<HeardHost*> heard{nullptr};

    void note(const char* verb) {
        const std::lock_guard lock(mutex);
        verbs.emplace_back(verb);
    }
    std::vector<std::string> noted() {
        const std::lock_guard lock(mutex);
        return std::exchange(verbs, {});
    }
    [[nodiscard]] bool hasCome(const char* verb) {
        const std::lock_guard lock(mutex);
        return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
    }
};

Scene scene;

class MadeUpClock final : public Backend {
  public:
    std::optional<DeviceFormat> open(BackendHost& host) override {
        scene.clock = &host;
        return DeviceFormat{48000, 2, 2, 512, 512};
    }
    bool start() override {
        scene.note("start clock");
        return true;
    }
    void stop() noexcept override { scene.note("stop clock"); }
    bool preferRate(Float64 sampleRate, bool /*mayWait*/) noexcept override {
        scene.clock->changed({sampleRate, 2, 2, 512, 512});
        return true;
    }
    void forgetAfterFork() noexcept override {}
};

class MadeUpDevice final : public HeardDevice {
  public:
    ~MadeUpDevice() override {
        scene.heard = nullptr;
        scene.note("end device");
    }
    std::optional<DeviceFormat> open(HeardHost& host, const HeardWish& wish) override {
        scene.note(wish.isToPlay ? "open device" : "open microphone");
        scene.heard = &host;
        DeviceFormat format = scene.format;
        format.sampleRate = wish.sampleRate > 0 ? wish.sampleRate : format.sampleRate;
        return scene.isThere ? std::optional(format) : std::nullopt;
    }
    bool start() override {
        scene.note("start device");
        if (!scene.starts) {
            return false;
        }
        scene.heard.load()->renderHeard({64, 0});
        return true;
    }
    void hear(bool isHearing) override { isHearing_ = isHearing; }
    bool isHearing() const override { return isHearing_; }
    void finish() noexcept override { scene.note("finish device"); }
    std::string place() override { return "speakers"; }

  private:
    bool isHearing_ = false;
};

constexpr BackendRow kHandoverRows[] = {
    {"both",
     [] {
         return std::unique_ptr<Backend>(std::make_unique<HandoverBackend>(
             "both", [] { return std::make_unique<MadeUpDevice>(); },
             std::make_unique<MadeUpClock>()));
     },
     false},
};

class HandoverClient final : public DeviceClient {
  public:
    explicit HandoverClient(bool isHeard, bool isHearing = false)
        : isHeard_(isHeard), isHearing_(isHearing) {}
    void render(const DeviceSlice& slice) noexcept override {
        const std::lock_guard lock(mutex);
        blocks.push_back(slice.time->mSampleTime);
        frames.push_back(slice.frames());
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            slice.output.at(0, frame) = 0.5F;
        }
    }
    ClientWants wants() const noexcept override { return {isHeard_, isHearing_}; }

    std::mutex mutex;
    std::vector<Float64> blocks;
    std::vector<UInt32> frames;

  private:
    const bool isHeard_;
    const bool isHearing_;
};

using Words = std::vector<std::string>;

Device& openBoth() {
    // It stays: helpers of its own may look at it to the end of the process.
    return *Device::open("both", kHandoverRows).release();
}

TEST(Handover, WhoIsNotHeardIsDrivenByTheClockAndOpensNothing) {
    Device& device = openBoth();
    HandoverClient quiet(false);
    ASSERT_TRUE(device.addClient(quiet));
    scene.clock->render({512, 0});
    EXPECT_EQ(quiet.blocks, (std::vector<Float64>{0}));
    device.removeClient(quiet);
    EXPECT_EQ(scene.noted(), (Words{"start clock", "stop clock"}));
}

TEST(Handover, TheDeviceOpensWithTheFirstWhoIsHeardAndClosesBehindTheLast) {
    Device& device = openBoth();
    HandoverClient one(true), two(true);
    ASSERT_TRUE(device.addClient(one));
    ASSERT_TRUE(device.addClient(two));
    EXPECT_EQ(scene.noted(), (Words{"open device", "start device"})) << "and the clock stands";
    EXPECT_EQ(device.sampleRate(), 44100);
    EXPECT_EQ(device.inputChannels(), 1U);
    device.removeClient(one);
    EXPECT_EQ(scene.noted(), Words{});
    device.removeClient(two);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    // Whether the clock drives for a moment before all stands still is chance.
    Words ending = scene.noted();
    std::erase_if(ending, [](const std::string& verb) { return verb.ends_with("clock"); });
    EXPECT_EQ(ending, (Words{"finish device", "end device"}));
}

TEST(Handover, NoBlockIsLostOrRepeatedBetweenTheClockAndTheDevice) {
    Device& device = openBoth();
    HandoverClient quiet(false), heard(true);
    ASSERT_TRUE(device.addClient(quiet));
    scene.clock->render({512, 0});
    ASSERT_TRUE(device.addClient(heard));  // the device asks for 64 when it starts
    scene.heard.load()->renderHeard({100, 0});
    scene.clock->render({512, 0});  // too late: the device drives
    device.removeClient(heard);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    scene.clock->render({512, 0});
    device.removeClient(quiet);
    EXPECT_EQ(quiet.frames, (std::vector<UInt32>{512, 64, 100, 512}));
    EXPECT_EQ(quiet.blocks, (std::vector<Float64>{0, 512, 576, 676}));
    EXPECT_EQ(heard.frames, (std::vector<UInt32>{100})) << "from the device alone";
}

TEST(Handover, WhoIsNotHeardIsNotInWhatIsPlayed) {
    Device& device = openBoth();
    HandoverClient quiet(false), heard(true);
    ASSERT_TRUE(device.addClient(quiet));
    ASSERT_TRUE(device.addClient(heard));
    std::vector<float> played(20, 9.0F);
    scene.heard.load()->renderHeard(
        {.frames = 10,
         .hostTime = 0,
         .played = tqcommon::AudioView::interleaved(played.data(), 2, 10)});
    EXPECT_EQ(played[0], 0.5F);
    EXPECT_EQ(played[1], 0.0F);
}

TEST(Handover, WhoOnlyListensOpensNothingToPlayOn) {
    Device& device = openBoth();
    EXPECT_FALSE(device.isHearing());
    HandoverClient listener(false, true), player(true);
    ASSERT_TRUE(device.addClient(listener));
    EXPECT_EQ(scene.noted(), (Words{"open microphone", "start device"}));
    EXPECT_TRUE(device.isHearing());
    ASSERT_TRUE(device.addClient(player));
    EXPECT_EQ(scene.noted(),
              (Words{"start clock", "end device", "open device", "start device", "stop clock"}))
        << "what only listens has nothing to play out";
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("open microphone"); }));
    device.removeClient(listener);
    ASSERT_TRUE(eventually([&] { return !device.isHearing(); }));
}

TEST(Handover, AMicrophoneThatWasNeverThereIsLookedForAndNoInterruption) {
    Device& device = openBoth();
    int notices = 0;
    NSNotificationCenter::defaultCenter().addObserver(
        &notices, [&](const NSNotification&) { ++notices; }, AVAudioSessionInterruptionNotification,
        nullptr);
    scene.starts = false;
    HandoverClient listener(false, true);
    ASSERT_TRUE(device.addClient(listener));
    EXPECT_FALSE(device.isHearing());
    scene.noted();
    ASSERT_TRUE(eventually([] { return scene.hasCome("open microphone"); })) << "again";
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return device.isHearing(); }));
    EXPECT_EQ(notices, 0);
    NSNotificationCenter::defaultCenter().removeObserver(&notices);
    device.removeClient(listener);
}

TEST(Handover, TheClockGoesOnWhileTheDeviceIsGone) {
    Device& device = openBoth();
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    scene.isThere = false;
    scene.noted();
    scene.heard.load()->lostHeard();
    ASSERT_TRUE(eventually([] { return scene.hasCome("start clock"); }));
    scene.clock->render({512, 0});
    EXPECT_EQ(heard.frames.back(), 512U);
    scene.isThere = true;
    ASSERT_TRUE(eventually([] { return scene.hasCome("stop clock"); }));
    EXPECT_EQ(heard.frames.back(), 64U) << "the device's first block";
    EXPECT_EQ(heard.blocks.back(), 64 + 512) << "behind the clock's last";
}

TEST(Handover, TheClockDrivesWhileTheDeviceAsksForNothing) {
    Device& device = openBoth();
    HandoverClient heard(true);
    std::vector<long> reasons;
    NSNotificationCenter::defaultCenter().addObserver(
        &reasons,
        [&](const NSNotification& notice) {
            const std::lock_guard lock(scene.mutex);
            reasons.push_back(notice.integerForKey(AVAudioSessionRouteChangeReasonKey, -1));
        },
        AVAudioSessionRouteChangeNotification, nullptr);
    const auto told = [&] {
        const std::lock_guard lock(scene.mutex);
        return reasons;
    };
    ASSERT_TRUE(device.addClient(heard));
    scene.noted();
    ASSERT_TRUE(eventually([] { return scene.hasCome("start clock"); }));
    EXPECT_EQ(told(), (std::vector<long>{2})) << "the old device is not available";
    scene.clock->render({512, 0});
    scene.heard.load()->renderHeard({100, 0});
    scene.clock->render({512, 0});  // too late: the device drives again
    ASSERT_TRUE(eventually([] { return scene.hasCome("stop clock"); }));
    EXPECT_EQ(heard.frames, (std::vector<UInt32>{512, 100}));
    EXPECT_EQ(scene.noted(), (Words{"start clock", "stop clock"})) << "it was never closed";
    EXPECT_TRUE(eventually([&] { return told() == std::vector<long>{2, 1}; }));
    NSNotificationCenter::defaultCenter().removeObserver(&reasons);
}

TEST(Handover, WithoutADeviceThereIsTheClockAndOneLine) {
    Device& device = openBoth();
    scene.isThere = false;
    testing::internal::CaptureStderr();
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    device.removeClient(heard);
    ASSERT_TRUE(device.addClient(heard));
    scene.clock->render({512, 0});
    EXPECT_EQ(heard.frames, (std::vector<UInt32>{512}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "TQ_AUDIO_DEVICE=both: no sound server or card answers, using null\n");
}

TEST(Handover, APreferredRateIsTheDevices) {
    Device& device = openBoth();
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    scene.noted();
    ASSERT_TRUE(device.preferRate(32000));
    EXPECT_EQ(device.sampleRate(), 32000);
    EXPECT_EQ(scene.noted(), (Words{"start clock", "finish device", "end device", "open device",
                                    "start device", "stop clock"}));
}

TEST(Handover, TheDeviceIsKnownBeforeItPlays) {
    Device& device = openBoth();
    EXPECT_EQ(device.sampleRate(), 48000);
    device.meet();
    device.meet();
    EXPECT_EQ(device.sampleRate(), 44100);
    EXPECT_EQ(device.inputChannels(), 1U);
    EXPECT_EQ(scene.noted(), (Words{"open device", "end device"}));
}

}  // namespace
