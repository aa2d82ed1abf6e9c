#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/NeverDestroyed.h"
#include "device/Device.h"
#include "device/handover/HandoverBackend.h"

// A clock and a device that do what the test says, and the keeper of both.

namespace tqtest::handover {

using namespace tqplatform;

/// What happens to the made-up clock and the made-up device of a test, and what they are to do.
/// Both ask for blocks when the test says so; the device asks for one when it is started, too.
struct Scene {
    std::mutex mutex;
    std::vector<std::string> verbs;
    std::atomic<bool> isThere{true};
    std::atomic<bool> starts{true};
    std::atomic<Float64> refusedRate{0};  ///< that the device cannot play at
    std::atomic<Float64> sameLength{-1};  ///< seconds, for which its blocks stay as they are
    DeviceFormat format{44100, 2, 1, 4096, 256};
    HeardWish wish{};  ///< the device was opened with
    BackendHost* clock = nullptr;
    std::atomic<UInt64> clockBegins{0};  ///< in host time, as it was told last
    std::atomic<HeardHost*> heard{nullptr};
    std::function<bool()> start{};          ///< what the device does when it is started, instead
    std::function<void()> finish{};         ///< what happens besides while it plays out
    std::function<void()> hear{};           ///< the same while it is asked to listen
    std::atomic<bool> isPlayingOut{false};  ///< which takes as long as this says
    std::atomic<bool> isMicrophoneThere{true};
    std::atomic<bool> isMicrophoneStill{false};  ///< it is there, and brings nothing
    std::atomic<bool> hasNewMicrophone{false};   ///< the device has to be opened anew for it
    HeardPlace place{};                          ///< with the mutex
    std::atomic<int> looks{0};                   ///< at it
    std::mutex requests;            ///< held while the device calls: it does not end meanwhile
    std::deque<bool> sleep{};       ///< news of the machine, not yet told
    std::atomic<int> watches{0};    ///< that look out for such news
    std::function<void()> watch{};  ///< what happens besides while one connects
    std::atomic<bool> isForgotten{false};  ///< by a child

    void note(const char* verb) {
        const std::lock_guard lock(mutex);
        verbs.emplace_back(verb);
    }
    /// The device asks for a block, where there is one.
    void request() {
        const std::lock_guard lock(requests);
        if (HeardHost* const host = heard) {
            host->renderHeard({64, 0});
        }
    }
    /// The device says that it is gone.
    void lose() {
        const std::lock_guard lock(requests);
        if (HeardHost* const host = heard) {
            host->lostHeard();
        }
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

/// Keepers look at it to the end of the process.
inline tqcommon::NeverDestroyed<Scene> theScene;
inline Scene& scene = *theScene;

/// What a device does when it is started.
inline bool rendersFirstBlock() {
    scene.heard.load()->renderHeard({64, 0});
    return true;
}

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
    void beginAt(UInt64 hostTime) noexcept override { scene.clockBegins = hostTime; }
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
        {
            const std::lock_guard lock(scene.requests);
            scene.heard = nullptr;
        }
        scene.note("end device");
    }
    std::optional<DeviceFormat> open(HeardHost& host, const HeardWish& wish) override {
        scene.note(wish.isToPlay ? "open device" : "open microphone");
        scene.wish = wish;
        scene.heard = &host;
        if (!scene.isThere) {
            return std::nullopt;  // a test may be writing down another format
        }
        DeviceFormat format = scene.format;
        format.sampleRate = wish.sampleRate > 0 ? wish.sampleRate : format.sampleRate;
        sampleRate_ = format.sampleRate;
        return format;
    }
    bool start() override {
        scene.note("start device");
        if (scene.start) {
            return scene.start();
        }
        if (!scene.starts || sampleRate_ == scene.refusedRate) {
            return false;
        }
        scene.heard.load()->renderHeard({64, 0});
        return true;
    }
    bool accepts() override {
        scene.note("try device");
        return sampleRate_ != scene.refusedRate;
    }
    bool hear(bool isHearing) override {
        if (scene.hear) {
            scene.hear();
        }
        if (isHearing && scene.hasNewMicrophone.exchange(false)) {
            scene.isMicrophoneThere = true;
            return false;
        }
        if (isHearing != isOpen_) {
            isOpen_ = isHearing;
            isHearing_ = isHearing && scene.isMicrophoneThere;
        }
        return true;
    }
    bool isHearing() const override { return isOpenAndThere() && !scene.isMicrophoneStill; }
    bool isStill() const override { return isOpenAndThere() && scene.isMicrophoneStill; }
    void choose(const std::string& microphone) override {
        scene.note(isOpen_ ? "choose while it listens" : "choose microphone");
        scene.wish.microphone = microphone;
    }
    bool hasLengthOf(Float64 seconds) const override { return seconds == scene.sameLength; }
    bool finish() noexcept override {
        scene.note("finish device");
        if (scene.finish) {
            scene.finish();
        }
        while (scene.isPlayingOut) {
            if (scene.heard.load()->isWantedAgain()) {
                scene.note("go on");
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
    HeardPlace place() override {
        const std::lock_guard lock(scene.mutex);
        ++scene.looks;
        return scene.place;
    }

  private:
    bool isOpenAndThere() const {
        // What has gone does not come back by itself.
        isHearing_ = isHearing_ && scene.isMicrophoneThere;
        return isHearing_;
    }

    Float64 sampleRate_ = 0;
    bool isOpen_ = false;
    mutable bool isHearing_ = false;
};

class MadeUpSleepWatch final : public SleepWatch {
  public:
    MadeUpSleepWatch() {
        if (scene.watch) {
            scene.watch();
        }
        ++scene.watches;
    }
    ~MadeUpSleepWatch() override { --scene.watches; }
    std::optional<bool> news() override {
        const std::lock_guard lock(scene.mutex);
        if (scene.sleep.empty()) {
            return std::nullopt;
        }
        const bool sleeps = scene.sleep.front();
        scene.sleep.pop_front();
        return sleeps;
    }
    void forgetAfterFork() noexcept override { scene.isForgotten = true; }
};

inline constexpr BackendRow kHandoverRows[] = {
    {"both",
     [] {
         return std::unique_ptr<Backend>(std::make_unique<HandoverBackend>(
             "both", [] { return std::make_unique<MadeUpDevice>(); },
             std::make_unique<MadeUpClock>(), [] { return std::make_unique<MadeUpSleepWatch>(); }));
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
        hostTimes.push_back(slice.time->mHostTime);
        heardTimes.push_back(slice.heardTime);
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            slice.output.at(0, frame) = 0.5F;
        }
    }
    ClientWants wants() const noexcept override { return {isHeard_, isHearing_}; }

    std::mutex mutex;
    std::vector<Float64> blocks;
    std::vector<UInt32> frames;
    std::vector<UInt64> hostTimes;
    std::vector<UInt64> heardTimes;

  private:
    const bool isHeard_;
    const bool isHearing_;
};

using Words = std::vector<std::string>;

inline Device& openBoth() {
    // It stays: helpers of its own may look at it to the end of the process.
    return *Device::open("both", kHandoverRows).release();
}

}  // namespace tqtest::handover
