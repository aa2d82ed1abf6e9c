#pragma once

#include <gtest/gtest.h>

#include <AVFoundation/AVFoundation.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "platform/device/HandoverScene.h"
#include "support/ProgramRunner.h"

// What tests of a device's caretaker look at, and what they let happen.

namespace tqtest::handover {

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

inline void say(bool sleeps) {
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

inline void moveTo(const HeardEnd& speakers, const HeardEnd& microphone) {
    const std::lock_guard lock(scene.mutex);
    scene.place = {speakers, microphone};
}

/// Until the keeper has looked so often where it plays.
inline void awaitLooks(int count = 3) {
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

}  // namespace tqtest::handover
