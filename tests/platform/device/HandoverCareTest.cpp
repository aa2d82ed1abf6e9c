// What the caretaker of a device does, and tells, when the device or the machine fails it.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <new>
#include <string>

#include "platform/device/HandoverCareScene.h"

namespace {

using namespace tqtest::handover;
using tqtest::eventually;

TEST(HandoverCare, AProgramThatStopsWhenItIsInterruptedHearsOfTheEnd) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices([&] { device.removeClient(heard); });
    ASSERT_TRUE(device.addClient(heard));
    scene.isThere = false;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    scene.isThere = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    EXPECT_EQ(scene.heard.load(), nullptr) << "nobody holds the device";
}

TEST(HandoverCare, AProgramThatStopsBeforeASleepHearsThatTheMachineIsAwake) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices([&] { device.removeClient(heard); });
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([] { return scene.watches == 1; }));
    say(true);
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    scene.noted();
    say(false);
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    EXPECT_TRUE(eventually([] { return scene.watches == 0; })) << "nobody delays a sleep then";
}

TEST(HandoverCare, ADeviceThatIsLostAgainWhileItComesBackEndsItsInterruption) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    std::atomic<bool> dies{false};
    scene.start = [&] {
        if (dies) {
            scene.lose();
        }
        return rendersFirstBlock();
    };
    ASSERT_TRUE(device.addClient(heard));
    dies = true;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    dies = false;
    ASSERT_TRUE(eventually([&] { return notices.told().size() == 2; }));
    EXPECT_EQ(notices.told(), (Words{"began", "ended"}));
    device.removeClient(heard);
}

TEST(HandoverCare, ADeviceWithoutMemoryIsNone) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    std::atomic<bool> hasMemory{true};
    scene.start = [&] {
        if (!hasMemory) {
            throw std::bad_alloc();
        }
        return rendersFirstBlock();
    };
    ASSERT_TRUE(device.addClient(heard));
    hasMemory = false;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    hasMemory = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    device.removeClient(heard);
}

TEST(HandoverCare, ADeviceThatNeverPlayedIsNoInterruption) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    scene.starts = false;
    testing::internal::CaptureStderr();
    ASSERT_TRUE(device.addClient(heard));
    scene.noted();
    ASSERT_TRUE(eventually([] { return scene.hasCome("open device"); })) << "it is looked for";
    EXPECT_EQ(notices.told(), Words{});
    scene.starts = true;
    EXPECT_TRUE(eventually([] { return scene.hasCome("stop clock"); }));
    EXPECT_EQ(notices.told(), Words{});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "TQ_AUDIO_DEVICE=both: what answers cannot play, using null until it can\n");
    device.removeClient(heard);
}

TEST(HandoverCare, OtherSpeakersAreOneNewRouteHoweverManyStepsTheServerTakes) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    moveTo({"one", 44100, 2, true}, {});
    ASSERT_TRUE(device.addClient(heard));
    const Speakers speakers;
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{}) << "where it is opened is no move";
    moveTo({"none", 44100, 1, false}, {});
    awaitLooks(1);
    moveTo({"two", 44100, 2, true}, {});
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 1"});
    moveTo({}, {});
    awaitLooks();
    moveTo({"two", 44100, 2, true}, {});
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 1"}) << "what was not known is no other";
    device.removeClient(heard);
}

TEST(HandoverCare, ADeviceThatDiesWhileItIsOpenedIsTriedTwiceASecond) {
    Device& device = openBoth();
    HandoverClient heard(true);
    std::atomic<int> openings{0};
    scene.start = [&] {
        ++openings;
        scene.lose();
        return false;
    };
    testing::internal::CaptureStderr();
    const auto began = std::chrono::steady_clock::now();
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([&] { return openings >= 3; }));
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(900));
    testing::internal::GetCapturedStderr();
    device.removeClient(heard);
}

TEST(HandoverCare, AStartWhileWhatWasRenderedIsPlayedOutGoesOnWithTheSameStream) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    scene.isPlayingOut = true;
    device.removeClient(heard);
    ASSERT_TRUE(eventually([] { return scene.hasCome("finish device"); }));
    const Speakers speakers;
    scene.noted();
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_TRUE(scene.hasCome("go on"));
    EXPECT_FALSE(scene.hasCome("open device"));
    scene.clock->render({512, 0});  // too late: the device drives
    ASSERT_TRUE(eventually([&] {
        const std::lock_guard lock(heard.mutex);
        return heard.frames.size() > 2;
    }));
    scene.isPlayingOut = false;
    device.removeClient(heard);
    EXPECT_EQ(std::count(heard.frames.begin(), heard.frames.end(), 512U), 0);
    EXPECT_EQ(notices.told(), Words{});
}

TEST(HandoverCare, ADeviceThatIsLostWhileItIsClosedIsNothingToTellAtTheNextStart) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(heard));
    scene.finish = [] { scene.lose(); };
    device.removeClient(heard);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    scene.finish = {};
    ASSERT_TRUE(device.addClient(heard));
    // Told by the same thread, behind whatever the start had to tell.
    scene.isThere = false;
    scene.lose();
    ASSERT_TRUE(
        eventually([&] { return !notices.told().empty() && notices.told().back() == "began"; }));
    EXPECT_EQ(notices.told(), Words{"began"});
    device.removeClient(heard);
}

TEST(HandoverCare, AChildHasWhatTheProgramPrefers) {
    Device& device = openBoth();
    ASSERT_TRUE(device.preferRate(32000));
    ASSERT_TRUE(device.preferDuration(0.02));
    ASSERT_TRUE(device.preferMicrophone("headset"));
    const pid_t child = fork();
    if (child == 0) {
        device.resetAfterFork();
        HandoverClient heard(true);
        const HeardWish& wish = scene.wish;
        _exit(device.addClient(heard) && wish.sampleRate == 32000 && wish.seconds == 0.02 &&
                      wish.microphone == "headset"
                  ? 7
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(HandoverCare, AChildThatACallbackOfTheClockForksOpensADeviceOfItsOwn) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer ends children that make threads";
#endif
    Device& device = openBoth();
    std::atomic<pid_t> child{0};
    std::function<void()> inCallback;
    class Forking final : public DeviceClient {
      public:
        explicit Forking(std::function<void()>& body) : body_(body) {}
        void render(const DeviceSlice& /*slice*/) noexcept override { std::exchange(body_, {})(); }
        ClientWants wants() const noexcept override { return {false, false}; }

      private:
        std::function<void()>& body_;
    };
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    device.removeClient(heard);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    inCallback = [&] {
        child = fork();
        if (child == 0) {
            device.resetAfterFork();
            HandoverClient mine(true);
            scene.noted();
            const bool isAdded = device.addClient(mine);
            _exit(isAdded && eventually([] { return scene.hasCome("open device"); }) ? 7 : 1);
        }
    };
    Forking forking(inCallback);
    ASSERT_TRUE(device.addClient(forking));
    scene.clock->render({512, 0});
    device.removeClient(forking);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

/// Whether a process sleeps, however often it is looked at; false once it has ended.
bool isAsleepForGood(pid_t process) {
    constexpr int kLooks = 20;
    int asleep = 0;
    return eventually([&] {
               std::ifstream file("/proc/" + std::to_string(process) + "/stat");
               std::string number, name, state;
               file >> number >> name >> state;
               asleep = state == "S" ? asleep + 1 : 0;
               return asleep == kLooks || state == "Z";
           }) &&
           asleep == kLooks;
}

TEST(HandoverCare, AChildThatANoticesHandlerForksDoesNotLookAfterTheParentsDevice) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    std::atomic<pid_t> child{0};
    NSNotificationCenter::defaultCenter().addObserver(
        &child,
        [&](const NSNotification&) {
            const pid_t forked = fork();
            if (forked == 0) {
                device.resetAfterFork();
            }
            child = forked;
        },
        AVAudioSessionRouteChangeNotification, nullptr);
    ASSERT_TRUE(device.addClient(both));
    {
        const Speakers speakers;
        scene.isMicrophoneThere = false;
        ASSERT_TRUE(eventually([&] { return child != 0; }));
        NSNotificationCenter::defaultCenter().removeObserver(&child);
        EXPECT_TRUE(isAsleepForGood(child));
    }
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    device.removeClient(both);
}

TEST(HandoverCare, AChildLetsGoOfWhatTheMachineWaitsFor) {
    Device& device = openBoth();
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    say(true);
    ASSERT_TRUE(eventually([] {
        const std::lock_guard lock(scene.mutex);
        return scene.sleep.empty();
    }));
    const pid_t child = fork();
    if (child == 0) {
        device.resetAfterFork();
        _exit(scene.isForgotten ? 7 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_FALSE(scene.isForgotten);
    device.removeClient(heard);
}

TEST(HandoverCare, WhoIsToldThatAMicrophoneIsThereReadsThatItIs) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    ASSERT_TRUE(device.addClient(player));
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    scene.starts = false;
    ASSERT_TRUE(device.addClient(listener));
    std::atomic<int> told{0};
    std::atomic<bool> wasHearing{false};
    NSNotificationCenter& center = NSNotificationCenter::defaultCenter();
    const int self = 0;
    center.addObserver(
        &self,
        [&](const NSNotification&) {
            wasHearing = device.isHearing();
            ++told;
        },
        AVAudioSessionRouteChangeNotification, nullptr);
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return told == 1; }));
    EXPECT_TRUE(wasHearing);
    device.removeClient(listener);
    center.removeObserver(&self);
}

}  // namespace
