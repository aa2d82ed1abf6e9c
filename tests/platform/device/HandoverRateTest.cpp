// What the caretaker of a device makes of what a program prefers, and what it tells of rates.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "platform/device/HandoverCareScene.h"

namespace {

using namespace tqtest::handover;
using tqtest::eventually;

TEST(HandoverCare, ADefaultWithAnotherRateIsOneNewRouteWithThatRate) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    moveTo({"one", 44100, 2, true}, {});
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    awaitLooks();
    scene.noted();
    scene.format.sampleRate = 96000;
    moveTo({"one", 96000, 2, true}, {});
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    EXPECT_EQ(device.sampleRate(), 96000);
    EXPECT_TRUE(scene.hasCome("finish device")) << "what was rendered is played";
    scene.noted();
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 1"});
    EXPECT_FALSE(scene.hasCome("open device"));
    device.removeClient(heard);
}

TEST(HandoverCare, ARateThatTheProgramPrefersStaysWhereverItIsPlayed) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.preferRate(32000));
    moveTo({"one", 44100, 2, true}, {});
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    awaitLooks();
    scene.noted();
    moveTo({"two", 96000, 2, true}, {});
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    EXPECT_FALSE(scene.hasCome("open device"));
    EXPECT_EQ(device.sampleRate(), 32000);
    device.removeClient(heard);
}

TEST(HandoverCare, WhatIsPreferredWhileWhatWasRenderedIsPlayedOutHoldsFromTheNextStart) {
    Device& device = openBoth();
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    scene.isPlayingOut = true;
    device.removeClient(heard);
    ASSERT_TRUE(eventually([] { return scene.hasCome("finish device"); }));
    const auto began = std::chrono::steady_clock::now();
    EXPECT_TRUE(device.preferRate(32000));
    EXPECT_TRUE(device.preferDuration(0.02));
    EXPECT_TRUE(device.preferMicrophone("headset"));
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2))
        << "each would have waited for a second";
    std::thread host([&] { EXPECT_TRUE(device.addClient(heard)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(scene.hasCome("go on")) << "with the old rate";
    scene.isPlayingOut = false;
    host.join();
    EXPECT_EQ(scene.wish, (HeardWish{32000, 0.02, "headset", true}));
    device.removeClient(heard);
}

/// A program that asks for a rate in each callback.
class Asking final : public DeviceClient {
  public:
    explicit Asking(Device& device, bool isHeard = true) : device_(device), isHeard_(isHeard) {}
    void render(const DeviceSlice& /*slice*/) noexcept override {
        const auto begin = std::chrono::steady_clock::now();
        static_cast<void>(device_.preferRate(32000));
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
    }
    ClientWants wants() const noexcept override { return {isHeard_, false}; }
    std::chrono::nanoseconds shortest = std::chrono::hours(1);

  private:
    Device& device_;
    const bool isHeard_;
};

TEST(HandoverCare, ARateThatACallbackOfTheClockAsksForIsToldOnce) {
    // Where there is no device, with the caretaker that has looked for one, and without.
    scene.isThere = false;
    for (const bool isHeard : {true, false}) {
        Device& device = openBoth();
        Asking asking(device, isHeard);
        Notices notices;
        testing::internal::CaptureStderr();
        ASSERT_TRUE(device.addClient(asking));
        for (int block = 0; block < 3; ++block) {
            scene.clock->render({512, 0});
        }
        EXPECT_EQ(device.sampleRate(), 32000);
        EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 8"}; }));
        device.removeClient(asking);
        EXPECT_FALSE(device.isNewFormat());
        EXPECT_EQ(notices.told(), Words{"route 8"});
        testing::internal::GetCapturedStderr();
    }
}

TEST(HandoverCare, ARateThatACallbackAsksForHoldsNoBlockUp) {
    Device& device = openBoth();
    Asking asking(device);
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(device.addClient(asking));
    for (int block = 0; block < 50; ++block) {
        scene.request();
    }
    device.removeClient(asking);
    EXPECT_LT(asking.shortest, std::chrono::milliseconds(20));
    EXPECT_TRUE(eventually([&] { return device.sampleRate() == 32000; }));
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 8"}; }));
    device.removeClient(heard);
}

TEST(HandoverCare, ADeviceThatComesBackWithAnotherRateIsANewRouteBeforeTheInterruptionsEnd) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    scene.isThere = false;
    scene.format.sampleRate = 96000;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    scene.isThere = true;
    ASSERT_TRUE(eventually([&] { return notices.told().size() == 3; }));
    EXPECT_EQ(notices.told(), (Words{"began", "route 8", "ended"}));
    EXPECT_EQ(device.sampleRate(), 96000);
    device.removeClient(heard);
}

TEST(HandoverCare, ADeviceThatHasAnotherRateThanAtTheLastStopIsOneNewRoute) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    const auto startAndStop = [&] {
        ASSERT_TRUE(device.addClient(heard));
        device.removeClient(heard);
        ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
        scene.noted();
    };
    startAndStop();
    EXPECT_EQ(notices.told(), Words{}) << "what it is like at first is no change";
    scene.format.inputChannels = 2;
    startAndStop();
    EXPECT_EQ(notices.told(), Words{"route 8"});
    startAndStop();
    EXPECT_EQ(notices.told(), Words{"route 8"});
}

TEST(HandoverCare, ARateIsToldByWhoSetsItOrElseWhenTheDeviceHasIt) {
    Device& device = openBoth();
    SlowClient slow;
    Notices notices;
    ASSERT_TRUE(device.addClient(slow));
    {
        const Speakers speakers;
        ASSERT_TRUE(device.preferRate(22050));
        EXPECT_TRUE(device.isNewFormat()) << "it has changed in time";
        EXPECT_FALSE(device.isNewFormat());
        slow.mayGoOn = false;
        ASSERT_TRUE(eventually([&] { return slow.isInside.load(); }));
        ASSERT_TRUE(device.preferRate(32000)) << "nobody knows yet";
        EXPECT_FALSE(device.isNewFormat());
        EXPECT_EQ(notices.told(), Words{});
        slow.goOn();
        EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 8"}; }));
        EXPECT_EQ(device.sampleRate(), 32000);
        EXPECT_FALSE(device.isNewFormat());
    }
    device.removeClient(slow);
}

TEST(HandoverCare, ARateThatTheDeviceRefusesIsRefusedAndTheOneBeforeHolds) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    scene.refusedRate = 32000;
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(device.preferRate(22050));
    EXPECT_TRUE(device.isNewFormat());
    EXPECT_FALSE(device.preferRate(32000));
    EXPECT_EQ(device.sampleRate(), 22050);
    const Speakers speakers;
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{}) << "it was answered";
    scene.noted();
    awaitLooks();
    EXPECT_EQ(scene.noted(), Words{}) << "it is not tried again";
    device.removeClient(heard);
}

TEST(HandoverCare, ARateIsTriedWhileNobodyPlays) {
    Device& device = openBoth();
    device.meet();
    scene.noted();
    scene.refusedRate = 32000;
    EXPECT_FALSE(device.preferRate(32000));
    EXPECT_EQ(device.sampleRate(), 44100);
    EXPECT_TRUE(device.preferRate(22050));
    EXPECT_EQ(device.sampleRate(), 22050);
    EXPECT_FALSE(device.preferRate(32000));
    EXPECT_EQ(device.sampleRate(), 22050);
    EXPECT_FALSE(scene.hasCome("start device"));
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_EQ(device.sampleRate(), 22050);
    device.removeClient(heard);
}

TEST(HandoverCare, ARateThatIsRefusedLaterIsToldAndHoldsNoMore) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.preferRate(32000)) << "nobody knows yet";
    EXPECT_FALSE(device.hasRefusedRate());
    scene.refusedRate = 32000;
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    EXPECT_TRUE(device.hasRefusedRate());
    EXPECT_EQ(device.sampleRate(), 44100);
    EXPECT_TRUE(device.preferRate(22050));
    EXPECT_FALSE(device.hasRefusedRate());
    device.removeClient(heard);
}

TEST(HandoverCare, WhoAsksAgainForARateWhenItsRefusalIsToldIsRefusedAtOnce) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    std::atomic<int> tries{0};
    std::atomic<bool> isTaken{true};
    NSNotificationCenter& center = NSNotificationCenter::defaultCenter();
    const int self = 0;
    center.addObserver(
        &self,
        [&](const NSNotification&) {
            isTaken = device.preferRate(32000);
            ++tries;
        },
        AVAudioSessionRouteChangeNotification, nullptr);
    ASSERT_TRUE(device.preferRate(32000)) << "nobody knows yet";
    scene.refusedRate = 32000;
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_TRUE(eventually([&] { return tries > 0; }));
    EXPECT_FALSE(isTaken);
    device.removeClient(heard);
    center.removeObserver(&self);
    EXPECT_EQ(tries, 1);
    EXPECT_EQ(notices.told(), Words{"route 1"});
}

TEST(HandoverCare, ADurationIsRefusedWhereThereIsOnlyTheClock) {
    Device& device = openBoth();
    EXPECT_TRUE(device.preferDuration(0.01)) << "nobody knows yet";
    scene.isThere = false;
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_FALSE(device.preferDuration(0.02));
    device.removeClient(heard);
}

TEST(HandoverCare, ADurationForWhichTheDeviceIsOpenedAnewIsOneNewRoute) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    EXPECT_TRUE(device.preferDuration(0.02));
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{}) << "it is opened so";
    EXPECT_TRUE(device.preferDuration(0.04));
    EXPECT_EQ(scene.wish.seconds, 0.04);
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 8"}; }));
    EXPECT_TRUE(device.preferDuration(0.04));
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 8"});
    device.removeClient(heard);
}

TEST(HandoverCare, ADurationThatChangesNothingOpensNothingAndIsNotTold) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    awaitLooks();
    scene.noted();
    scene.sameLength = 0.01;
    EXPECT_TRUE(device.preferDuration(0.01));
    awaitLooks();
    EXPECT_EQ(scene.noted(), Words{}) << "it is open so";
    EXPECT_EQ(notices.told(), Words{});
    EXPECT_TRUE(device.preferDuration(0.04));
    EXPECT_EQ(scene.wish.seconds, 0.04);
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 8"}; }));
    device.removeClient(heard);
}

TEST(HandoverCare, ADurationThatChangesNothingIsKeptForTheNextOpening) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    scene.sameLength = 0.01;
    EXPECT_TRUE(device.preferDuration(0.01));
    EXPECT_EQ(scene.wish.seconds, 0);
    scene.lose();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    EXPECT_EQ(scene.wish.seconds, 0.01);
    device.removeClient(heard);
}

}  // namespace
