// What the caretaker of a device does, and tells, when the device or the machine fails it.

#include <gtest/gtest.h>

#include <AVFoundation/AVFoundation.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <new>
#include <string>
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

/// The device asks for blocks, whichever it is at the moment.
class Speakers {
  public:
    Speakers()
        : thread_([this] {
              while (!isOver_) {
                  scene.request();
                  std::this_thread::sleep_for(std::chrono::milliseconds(10));
              }
          }) {}
    ~Speakers() {
        isOver_ = true;
        thread_.join();
    }
    Speakers(const Speakers&) = delete;
    Speakers& operator=(const Speakers&) = delete;

  private:
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

void moveTo(const HeardEnd& speakers, const HeardEnd& microphone) {
    const std::lock_guard lock(scene.mutex);
    scene.place = {speakers, microphone};
}

/// Until the keeper has looked so often where it plays.
void awaitLooks(int count = 3) {
    const int before = scene.looks;
    ASSERT_TRUE(eventually([=] { return scene.looks >= before + count; }));
}

/// A program whose callback takes as long as the test says.
class SlowClient final : public DeviceClient {
  public:
    ~SlowClient() { goOn(); }
    void render(const DeviceSlice& /*slice*/) noexcept override {
        isInside = true;
        mayGoOn.wait(false);
        isInside = false;
        ++blocks;
    }
    ClientWants wants() const noexcept override { return {true, false}; }
    void goOn() {
        mayGoOn = true;
        mayGoOn.notify_all();
    }

    std::atomic<bool> mayGoOn{true};
    std::atomic<bool> isInside{false};
    std::atomic<int> blocks{0};
};

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

TEST(HandoverCare, AMicrophoneThatGoesBesideTheSpeakersIsToldAndTriedAgain) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(both));
    ASSERT_TRUE(device.isHearing());
    const Speakers speakers;
    scene.isMicrophoneThere = false;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    EXPECT_FALSE(device.isHearing());
    scene.isMicrophoneThere = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    EXPECT_TRUE(device.isHearing());
    device.removeClient(both);
}

TEST(HandoverCare, AMicrophoneThatGoesIsToldAlsoWhenTheProgramStartsAnotherUnitRightThen) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    scene.isMicrophoneThere = false;
    // The keeper is woken, and sees before its next look that nothing is heard.
    ASSERT_TRUE(device.preferMicrophone(""));
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    device.removeClient(both);
}

TEST(HandoverCare, TheFirstOutputBesideWhoListensIsOneNewRoute) {
    Device& device = openBoth();
    HandoverClient listener(false, true), player(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(listener));
    ASSERT_TRUE(device.addClient(player));
    EXPECT_EQ(notices.told(), Words{"route 8"});
    device.removeClient(player);
    ASSERT_TRUE(device.addClient(player));
    EXPECT_EQ(notices.told(), Words{"route 8"});
    device.removeClient(player);
    device.removeClient(listener);
}

TEST(HandoverCare, SpeakersThatPlaySilenceForWhoListensAreNoInterruptionWhenTheyGo) {
    Device& device = openBoth();
    HandoverClient listener(false, true), player(true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    ASSERT_TRUE(device.addClient(listener));
    device.removeClient(player);
    scene.noted();
    scene.starts = false;
    scene.heard.load()->lostHeard();
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2"}; }));
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    EXPECT_FALSE(scene.hasCome("open device")) << "the microphone alone";
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneAloneThatCannotBeOpenedIsNoInterruption) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    scene.starts = false;
    ASSERT_TRUE(device.addClient(listener));
    scene.noted();
    ASSERT_TRUE(eventually([] { return scene.hasCome("open microphone"); })) << "again";
    EXPECT_EQ(notices.told(), Words{}) << "who has just begun to listen has lost nothing";
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    EXPECT_TRUE(device.isHearing());
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneAloneThatGoesIsToldOnceAndOnceThatItIsBack) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices;
    ASSERT_TRUE(device.addClient(player));
    device.removeClient(player);
    ASSERT_TRUE(eventually([] { return scene.hasCome("end device"); }));
    ASSERT_TRUE(device.addClient(listener));
    ASSERT_TRUE(device.isHearing());
    scene.starts = false;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return !notices.told().empty(); }));
    for (int tries = 0; tries < 2; ++tries) {
        scene.noted();
        ASSERT_TRUE(eventually([] { return scene.hasCome("open microphone"); }));
    }
    EXPECT_EQ(notices.told(), Words{"route 2"});
    scene.starts = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 2", "route 1"}; }));
    device.removeClient(listener);
}

TEST(HandoverCare, AnInterruptionEndsWithTheServerAlsoForWhoListensToAMissingMicrophone) {
    Device& device = openBoth();
    HandoverClient player(true), listener(false, true);
    Notices notices([&] { device.removeClient(player); });
    ASSERT_TRUE(device.addClient(player));
    scene.isThere = false;
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    ASSERT_TRUE(device.addClient(listener));
    scene.starts = false;
    scene.isThere = true;
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"began", "ended"}; }));
    device.removeClient(listener);
}

TEST(HandoverCare, AMicrophoneThatThePlugIsPutInForIsOneNewRouteAndWhatWasRenderedIsPlayed) {
    Device& device = openBoth();
    HandoverClient both(true, true);
    Notices notices;
    scene.isMicrophoneThere = false;
    ASSERT_TRUE(device.addClient(both));
    const Speakers speakers;
    scene.noted();
    scene.hasNewMicrophone = true;
    ASSERT_TRUE(eventually([] { return scene.hasCome("start device"); }));
    EXPECT_TRUE(eventually([&] { return !notices.told().empty(); }));
    EXPECT_TRUE(scene.hasCome("finish device"));
    awaitLooks();
    EXPECT_EQ(notices.told(), Words{"route 1"});
    EXPECT_TRUE(device.isHearing());
    device.removeClient(both);
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

TEST(HandoverCare, AnotherMicrophoneIsANewRouteForWhoListensAlone) {
    Device& device = openBoth();
    HandoverClient listener(false, true);
    Notices notices;
    moveTo({}, {"one", 48000, 1, true});
    ASSERT_TRUE(device.addClient(listener));
    const Speakers blocks;
    awaitLooks();
    moveTo({}, {"two", 16000, 1, true});
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1"}; }));
    scene.format.inputChannels = 2;
    moveTo({}, {"three", 48000, 2, true});
    EXPECT_TRUE(eventually([&] { return notices.told() == Words{"route 1", "route 1"}; }));
    EXPECT_EQ(device.inputChannels(), 2U) << "opened anew";
    device.removeClient(listener);
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
    scene.lose();
    ASSERT_TRUE(eventually([&] { return notices.told() == Words{"began"}; }));
    scene.format.sampleRate = 96000;
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
        scene.heard.load()->lostHeard();
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

TEST(HandoverCare, ADurationIsRefusedWhereThereIsOnlyTheClock) {
    Device& device = openBoth();
    EXPECT_TRUE(device.preferDuration(0.01)) << "nobody knows yet";
    scene.isThere = false;
    HandoverClient heard(true);
    ASSERT_TRUE(device.addClient(heard));
    EXPECT_FALSE(device.preferDuration(0.02));
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
