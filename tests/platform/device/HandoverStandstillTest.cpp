// What the caretaker of a device does while a server or a program stands still.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "platform/device/HandoverCareScene.h"

namespace {

using namespace tqtest::handover;
using tqtest::eventually;

TEST(HandoverCare, ADeviceThatStoodStillAndWasOpenedAnewIsBack) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    scene.lose();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    device.removeClient(heard);
}

TEST(HandoverCare, ACallbackThatTakesSecondsIsNoDeviceThatStandsStill) {
    Device& device = openBoth();
    SlowClient slow;
    Notices notices;
    ASSERT_TRUE(device.addClient(slow));
    {
        const Speakers speakers;
        awaitLooks(13);  // from then on the clock drives where a device asks for nothing
        scene.noted();
        slow.mayGoOn = false;
        ASSERT_TRUE(eventually([&] { return slow.isInside.load(); }));
        awaitLooks(8);
        EXPECT_EQ(scene.noted(), Words{}) << "the clock stands";
        slow.goOn();
        const int before = slow.blocks;
        EXPECT_TRUE(eventually([&] { return slow.blocks > before + 2; }));
        EXPECT_EQ(notices.told(), Words{});
    }
    device.removeClient(slow);
}

TEST(HandoverCare, WhileACallbackHoldsARequestWhatHasToBeClosedWaitsAndTheRestGoesOn) {
    Device& device = openBoth();
    SlowClient slow;
    Notices notices;
    ASSERT_TRUE(device.addClient(slow));
    {
        const Speakers speakers;
        ASSERT_TRUE(eventually([] { return scene.watches == 1; }));
        slow.mayGoOn = false;
        ASSERT_TRUE(eventually([&] { return slow.isInside.load(); }));
        scene.noted();
        scene.heard.load()->lostHeard();  // a request holds it meanwhile
        say(true);
        ASSERT_TRUE(eventually([] {
            const std::lock_guard lock(scene.mutex);
            return scene.sleep.empty();
        })) << "news are taken";
        EXPECT_FALSE(scene.hasCome("start clock")) << "two would render at one time";
        EXPECT_FALSE(scene.hasCome("end device"));
        EXPECT_EQ(notices.told(), Words{});
        slow.goOn();
        EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
        say(false);
        EXPECT_TRUE(eventually([] { return scene.hasCome("start device"); }));
        EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    }
    device.removeClient(slow);
}

/// A server that answers when the test says so.
class Standstill {
  public:
    ~Standstill() { goOn(); }
    void await() {
        isHeld = true;
        mayGoOn.wait(false);
    }
    void goOn() {
        mayGoOn = true;
        mayGoOn.notify_all();
    }

    std::atomic<bool> mayGoOn{false};
    std::atomic<bool> isHeld{false};
};

TEST(HandoverCare, AServerThatStandsStillWhileItIsOpenedHoldsUpNothingElse) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    Standstill server;
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([] { return scene.watches == 1; }));
    scene.noted();
    scene.start = [&] {
        server.await();
        return rendersFirstBlock();
    };
    scene.lose();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    ASSERT_TRUE(server.isHeld);
    ASSERT_TRUE(scene.hasCome("start clock"));
    constexpr int kSounds = 12;
    const auto before = std::chrono::steady_clock::now();
    for (int sound = 0; sound < kSounds; ++sound) {
        device.removeClient(heard);
        ASSERT_TRUE(device.addClient(heard));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(kSounds / 2))
        << "no start waits for it";
    scene.noted();
    scene.clock->render({512, 0});
    EXPECT_EQ(heard.frames.back(), 512U) << "units have their callbacks";
    say(true);
    say(false);
    EXPECT_TRUE(eventually([] {
        const std::lock_guard lock(scene.mutex);
        return scene.sleep.empty();
    })) << "news are taken";
    EXPECT_FALSE(scene.hasCome("stop clock"));
    server.goOn();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    EXPECT_TRUE(scene.hasCome("stop clock"));
    device.removeClient(heard);
}

TEST(HandoverCare, AServerThatStandsStillWhileItIsClosedHoldsUpNothingElse) {
    Device& device = openBoth();
    HandoverClient heard(true), quiet(false);
    Notices notices;
    Standstill server;
    ASSERT_TRUE(device.addClient(quiet));
    ASSERT_TRUE(device.addClient(heard));
    scene.finish = [&] { server.await(); };
    scene.noted();
    device.removeClient(heard);
    ASSERT_TRUE(eventually([&] { return server.isHeld.load(); }));
    EXPECT_TRUE(scene.hasCome("start clock"));
    scene.clock->render({512, 0});
    EXPECT_EQ(quiet.frames.back(), 512U);
    EXPECT_EQ(notices.told(), Words{}) << "nobody wants to be heard";
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    server.goOn();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    scene.noted();
    device.removeClient(heard);
    device.removeClient(quiet);
    EXPECT_TRUE(eventually([] { return scene.hasCome("end device"); }));
}

TEST(HandoverCare, AMachineThatFallsAsleepWhileADeviceIsClosedOpensNoOther) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    Standstill server;
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([] { return scene.watches == 1; }));
    scene.finish = [&] { server.await(); };
    EXPECT_TRUE(device.preferDuration(0.02));  // it has to be opened anew for that
    ASSERT_TRUE(server.isHeld);
    scene.noted();
    say(true);
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    server.goOn();
    EXPECT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_FALSE(scene.hasCome("open device"));
    EXPECT_EQ(notices.told(), Words{"began"});
    say(false);
    EXPECT_TRUE(eventually([] { return scene.hasCome("start device"); }));
    EXPECT_TRUE(eventually([&] { return notices.told().back() == "ended"; }));
    device.removeClient(heard);
}

TEST(HandoverCare, AMicrophoneThatTakesLongHoldsUpNothingElse) {
    Device& device = openBoth();
    HandoverClient heard(true), listener(false, true);
    Notices notices;
    Standstill server;
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([] { return scene.watches == 1; }));
    const Speakers speakers;
    scene.hear = [&] { server.await(); };
    ASSERT_TRUE(device.addClient(listener));
    say(true);
    say(false);
    EXPECT_TRUE(eventually([] {
        const std::lock_guard lock(scene.mutex);
        return scene.sleep.empty();
    })) << "news are taken";
    EXPECT_EQ(notices.told(), Words{}) << "the speakers go on";
    server.goOn();
    EXPECT_TRUE(eventually([&] { return device.isHearing(); }));
    device.removeClient(listener);
    EXPECT_TRUE(eventually([&] { return !device.isHearing(); }));
    device.removeClient(heard);
}

TEST(HandoverCare, ABusOfTheSystemThatHangsHoldsUpNothing) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    Standstill bus;
    std::atomic<int> connections{0};
    scene.watch = [&] {
        ++connections;
        bus.await();
    };
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    ASSERT_TRUE(eventually([&] { return bus.isHeld.load(); }));
    for (int sound = 0; sound < 2; ++sound) {
        scene.noted();
        device.removeClient(heard);
        EXPECT_TRUE(eventually([] { return scene.hasCome("end device"); }));
        ASSERT_TRUE(device.addClient(heard));
        EXPECT_TRUE(scene.hasCome("start device"));
        awaitLooks();
    }
    EXPECT_EQ(connections, 1) << "one that hangs is enough";
    EXPECT_EQ(notices.told(), Words{});
    scene.isThere = false;
    scene.lose();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    scene.isThere = true;
    bus.goOn();
    EXPECT_TRUE(eventually([] { return scene.watches > 0; }));
    device.removeClient(heard);
    EXPECT_TRUE(eventually([] { return scene.watches == 0; })) << "nobody delays a sleep then";
}

TEST(HandoverCare, WhatEndsDoesNotWaitForAServerThatStandsStill) {
    std::unique_ptr<Device> device = Device::open("both", kHandoverRows);
    HandoverClient heard(true);
    Standstill server;
    testing::internal::CaptureStderr();
    scene.start = [&] {
        server.await();
        return true;
    };
    ASSERT_TRUE(device->addClient(heard)) << "on the clock";
    device->removeClient(heard);
    device.reset();
    EXPECT_FALSE(scene.hasCome("end device")) << "it is the server's";
    server.goOn();
    EXPECT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    testing::internal::GetCapturedStderr();
}

}  // namespace
