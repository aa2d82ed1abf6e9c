#include "platform/device/HandoverScene.h"

#include <gtest/gtest.h>

#include <AVFoundation/AVFoundation.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/ProgramRunner.h"

namespace {

using namespace tqtest::handover;
using tqtest::eventually;

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

TEST(Handover, HostTimeIsNeverSetBackFromOneToTheOther) {
    constexpr UInt64 kBlock = 10'000'000;
    Device& device = openBoth();
    scene.format = {48000, 2, 1, 4096, 256};
    HandoverClient quiet(false), heard(true);
    ASSERT_TRUE(device.addClient(quiet));
    scene.clock->render({480, 1000 * kBlock});
    scene.start = [] {
        scene.heard.load()->renderHeard({480, 1010 * kBlock});
        return true;
    };
    ASSERT_TRUE(device.addClient(heard));
    scene.heard.load()->renderHeard({480, 1011 * kBlock});
    device.removeClient(heard);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    EXPECT_EQ(scene.clockBegins, 1012 * kBlock) << "behind what the device has in hand";
    scene.clock->render({480, 1003 * kBlock});  // too early
    scene.clock->render({480, 1012 * kBlock});
    device.removeClient(quiet);
    EXPECT_EQ(quiet.hostTimes, (std::vector<UInt64>{1000 * kBlock, 1010 * kBlock, 1011 * kBlock,
                                                    1011 * kBlock, 1012 * kBlock}));
    EXPECT_TRUE(std::is_sorted(quiet.heardTimes.begin(), quiet.heardTimes.end()));
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
    device.removeClient(listener);
    ASSERT_TRUE(eventually([&] { return !device.isHearing(); }));
}

TEST(Handover, WhoListensHearsOnWhenTheOutputStopsAndStartsAgain) {
    Device& device = openBoth();
    HandoverClient listener(false, true), player(true);
    ASSERT_TRUE(device.addClient(player));
    ASSERT_TRUE(device.addClient(listener));
    scene.noted();
    const auto played = [] {
        std::vector<float> block(20, 9.0F);
        scene.heard.load()->renderHeard(
            {.frames = 10,
             .hostTime = 0,
             .played = tqcommon::AudioView::interleaved(block.data(), 2, 10)});
        return block[0];
    };
    device.removeClient(player);
    ASSERT_TRUE(device.preferMicrophone(""));  // which is answered when the stop was looked at
    EXPECT_EQ(played(), 0.0F) << "silence";
    EXPECT_TRUE(device.isHearing());
    ASSERT_TRUE(device.addClient(player));
    EXPECT_EQ(played(), 0.5F);
    EXPECT_EQ(scene.noted(), Words{}) << "nothing is opened or closed";
    EXPECT_EQ(listener.frames, (std::vector<UInt32>{10, 10}));
    device.removeClient(player);
    device.removeClient(listener);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
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
    scene.lose();
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

TEST(Handover, WhereNoDeviceWasReachedThereIsNoMicrophoneToChoose) {
    Device& device = openBoth();
    EXPECT_TRUE(device.preferMicrophone("headset")) << "nobody knows yet";
    scene.isThere = false;
    testing::internal::CaptureStderr();
    HandoverClient listener(false, true);
    ASSERT_TRUE(device.addClient(listener));
    testing::internal::GetCapturedStderr();
    scene.isThere = true;
    EXPECT_FALSE(device.preferMicrophone("headset")) << "nobody looks again";
    device.removeClient(listener);
}

TEST(Handover, WhoIsHeardIsAddedWhenTheDeviceDrivesNotWhenItHasAsked) {
    /// Holds a request until it is let go.
    class Holder final : public DeviceClient {
      public:
        void render(const DeviceSlice& /*slice*/) noexcept override {
            isInside = true;
            isInside.notify_all();
            mayGoOn.wait(false);
        }
        ClientWants wants() const noexcept override { return {}; }
        std::atomic<bool> isInside{false};
        std::atomic<bool> mayGoOn{false};
    };
    Device& device = openBoth();
    Holder holder;
    ASSERT_TRUE(device.addClient(holder));
    std::thread clock;
    std::atomic<bool> hasAsked{false};
    scene.start = [&] {
        clock = std::thread([] { scene.clock->render({512, 0}); });
        holder.isInside.wait(false);
        hasAsked = rendersFirstBlock();  // while the clock does
        return true;
    };
    HandoverClient heard(true);
    std::atomic<bool> isAdded{false};
    std::thread host([&] { isAdded = device.addClient(heard); });
    ASSERT_TRUE(eventually([&] { return hasAsked.load(); }));
    holder.mayGoOn = true;
    holder.mayGoOn.notify_all();
    clock.join();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(isAdded) << "its first block would be the clock's, and not be heard";
    scene.request();
    host.join();
    scene.clock->render({512, 0});  // too late: the device drives
    scene.request();
    EXPECT_TRUE(isAdded);
    EXPECT_EQ(heard.frames, (std::vector<UInt32>{64}));
    device.removeClient(heard);
    device.removeClient(holder);
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

TEST(Handover, TheDevicesLatenciesAreKnownAndAClockHasOneSlice) {
    Device& device = openBoth();
    EXPECT_EQ(device.outputLatency(), 0U);
    EXPECT_EQ(device.inputLatency(), 0U);
    scene.format.outputLatency = 512;
    scene.format.inputLatency = 100;
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_EQ(device.outputLatency(), 512U);
    EXPECT_EQ(device.inputLatency(), 100U);
    device.removeClient(heard);
}

}  // namespace
