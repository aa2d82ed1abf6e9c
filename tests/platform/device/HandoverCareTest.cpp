// What the caretaker of a device does, and tells, when the device or the machine fails it.

#include <gtest/gtest.h>

#include <AVFoundation/AVFoundation.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <new>
#include <thread>

#include "platform/device/HandoverScene.h"
#include "support/ProgramRunner.h"

namespace {

using namespace tqtest::handover;
using tqtest::eventually;

/// What programs are told from here on.
class Notices {
  public:
    /// `atBegin` is the program's handler of an interruption that begins.
    explicit Notices(std::function<void()> atBegin = {}) : atBegin_(std::move(atBegin)) {
        NSNotificationCenter::defaultCenter().addObserver(
            this,
            [this](const NSNotification& notice) {
                const bool begins = notice.integerForKey(AVAudioSessionInterruptionTypeKey, -1) ==
                                    static_cast<long>(AVAudioSessionInterruptionTypeBegan);
                note(begins ? "began" : "ended");
                if (begins && atBegin_) {
                    atBegin_();
                }
            },
            AVAudioSessionInterruptionNotification, nullptr);
        NSNotificationCenter::defaultCenter().addObserver(
            this,
            [this](const NSNotification& notice) {
                note("route " +
                     std::to_string(notice.integerForKey(AVAudioSessionRouteChangeReasonKey, -1)));
            },
            AVAudioSessionRouteChangeNotification, nullptr);
    }
    ~Notices() { NSNotificationCenter::defaultCenter().removeObserver(this); }
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;

    [[nodiscard]] Words told() {
        const std::lock_guard lock(mutex_);
        return told_;
    }

  private:
    void note(const std::string& word) {
        const std::lock_guard lock(mutex_);
        told_.push_back(word);
    }

    const std::function<void()> atBegin_;
    std::mutex mutex_;
    Words told_;
};

void say(bool sleeps) {
    const std::lock_guard lock(scene.mutex);
    scene.sleep.push_back(sleeps);
}

bool rendersFirstBlock() {
    scene.heard.load()->renderHeard({64, 0});
    return true;
}

TEST(HandoverCare, AProgramThatStopsWhenItIsInterruptedHearsOfTheEnd) {
    Device& device = openBoth();
    HandoverClient heard(true);
    Notices notices([&] { device.removeClient(heard); });
    ASSERT_TRUE(device.addClient(heard));
    scene.isThere = false;
    scene.heard.load()->lostHeard();
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
            scene.heard.load()->lostHeard();
        }
        return rendersFirstBlock();
    };
    ASSERT_TRUE(device.addClient(heard));
    dies = true;
    scene.heard.load()->lostHeard();
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
    scene.heard.load()->lostHeard();
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

TEST(HandoverCare, AMicrophoneThatGoesBesideTheSpeakersIsToldAndTriedAgain) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(both));
    ASSERT_TRUE(device.isHearing());
    std::atomic<bool> isOver{false};
    std::thread speakers([&, host = scene.heard.load()] {
        while (!isOver) {
            host->renderHeard({64, 0});
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const auto tells = [&](const std::string& word) {
        return eventually([&] {
            const Words told = notices.told();
            return std::find(told.begin(), told.end(), word) != told.end();
        });
    };
    scene.isMicrophoneThere = false;
    EXPECT_TRUE(tells("route 2"));
    EXPECT_FALSE(device.isHearing());
    scene.isMicrophoneThere = true;
    EXPECT_TRUE(tells("route 1"));
    EXPECT_TRUE(device.isHearing());
    isOver = true;
    speakers.join();
    device.removeClient(both);
}

TEST(HandoverCare, ARateThatACallbackAsksForHoldsNoBlockUp) {
    class Asking final : public DeviceClient {
      public:
        explicit Asking(Device& device) : device_(device) {}
        void render(const DeviceSlice& /*slice*/) noexcept override {
            const auto begin = std::chrono::steady_clock::now();
            static_cast<void>(device_.preferRate(32000));
            shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
        }
        ClientWants wants() const noexcept override { return {true, false}; }
        std::chrono::nanoseconds shortest = std::chrono::hours(1);

      private:
        Device& device_;
    };
    Device& device = openBoth();
    Asking asking(device);
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(device.addClient(asking));
    HeardHost& host = *scene.heard.load();
    for (int block = 0; block < 50; ++block) {
        host.renderHeard({64, 0});
    }
    device.removeClient(asking);
    EXPECT_LT(asking.shortest, std::chrono::milliseconds(20));
    device.removeClient(heard);
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

TEST(HandoverCare, AChildLetsGoOfWhatTheMachineWaitsFor) {
    Device& device = openBoth();
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    ASSERT_TRUE(eventually([] { return scene.watches == 1; }));
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

}  // namespace
