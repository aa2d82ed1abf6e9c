// What programs prefer of the null device, and what they are told of it.

#include <AVFoundation/AVFoundation.h>
#include <AudioToolbox/AudioSession.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>

#include "NullDeviceScene.h"
#include "support/ProgramRunner.h"

namespace {

using namespace tqtest::nulldevice;

TEST(NullDevice, FollowsAPreferredRateAtRestAndWhileItRuns) {
    EXPECT_FALSE(sharedDevice().preferRate(1e6));
    EXPECT_FALSE(sharedDevice().preferRate(std::nan("")));
    EXPECT_EQ(sharedDevice().sampleRate(), 48000);
    ASSERT_TRUE(sharedDevice().preferRate(44100));
    EXPECT_EQ(sharedDevice().sampleRate(), 44100);
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(3));
    ASSERT_TRUE(sharedDevice().preferRate(32000));
    EXPECT_EQ(sharedDevice().sampleRate(), 32000);
    ASSERT_TRUE(client.waitForSlices(client.notes().size() + 8));
    // Periods of 16 ms, whole ones where the machine was late.
    const std::vector<SliceNote> notes = client.notes();
    const UInt64 apart = notes.back().time.mHostTime - notes[notes.size() - 2].time.mHostTime;
    EXPECT_EQ(apart % 16'000'000, 0U) << apart;
}

TEST(NullDevice, FollowsAPreferredDurationAndSetsNoTimeBack) {
    EXPECT_FALSE(sharedDevice().preferDuration(0));
    EXPECT_FALSE(sharedDevice().preferDuration(std::nan("")));
    EXPECT_EQ(sharedDevice().sliceFrames(), 512U);
    ASSERT_TRUE(sharedDevice().preferDuration(0.02));
    EXPECT_EQ(sharedDevice().sliceFrames(), 960U);
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(3));
    ASSERT_TRUE(sharedDevice().preferDuration(0.002));
    ASSERT_TRUE(client.waitForSlices(client.notes().size() + 8));
    ASSERT_TRUE(sharedDevice().preferDuration(1e-9));
    ASSERT_TRUE(client.waitForSlices(client.notes().size() + 8));
    const std::vector<SliceNote> notes = client.notes();
    EXPECT_EQ(notes.front().frames, 960U);
    EXPECT_TRUE(std::any_of(notes.begin(), notes.end(),
                            [](const SliceNote& note) { return note.frames == 96; }));
    EXPECT_EQ(notes.back().frames, 64U) << "the shortest there is";
    for (std::size_t index = 1; index < notes.size(); ++index) {
        EXPECT_GT(notes[index].time.mHostTime, notes[index - 1].time.mHostTime);
        EXPECT_EQ(notes[index].time.mSampleTime,
                  notes[index - 1].time.mSampleTime + notes[index - 1].frames);
    }
}

TEST(NullDevice, ARateAskedForInsideASliceIsThereBehindIt) {
    std::atomic<bool> asks{false};
    std::atomic<bool> accepted{false};
    std::atomic<Float64> within{0};
    Client client([&](const DeviceSlice&) {
        if (asks.exchange(false)) {
            accepted = sharedDevice().preferRate(32000);
            within = sharedDevice().sampleRate();
        }
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    asks = true;
    ASSERT_TRUE(client.waitForSlices(client.notes().size() + 4));
    EXPECT_TRUE(accepted);
    EXPECT_EQ(within, 48000);
    EXPECT_EQ(sharedDevice().sampleRate(), 32000);
}

/// What programs are told of the device's format while it is there.
class RouteNotices {
  public:
    RouteNotices() {
        NSNotificationCenter::defaultCenter().addObserver(
            this,
            [this](const NSNotification& notice) {
                reason = notice.integerForKey(AVAudioSessionRouteChangeReasonKey, -1);
                rate = sharedDevice().sampleRate();
                ++count;
            },
            AVAudioSessionRouteChangeNotification, nullptr);
    }
    ~RouteNotices() { NSNotificationCenter::defaultCenter().removeObserver(this); }
    RouteNotices(const RouteNotices&) = delete;
    RouteNotices& operator=(const RouteNotices&) = delete;

    std::atomic<int> count{0};
    std::atomic<long> reason{0};   ///< of the last
    std::atomic<Float64> rate{0};  ///< when it came
};

OSStatus preferInSession(Float64 rate) {
    return AudioSessionSetProperty(kAudioSessionProperty_PreferredHardwareSampleRate, sizeof rate,
                                   &rate);
}

TEST(NullDevice, ARateThatACallbackAsksForIsToldOnceItHolds) {
    ASSERT_EQ(AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr), kAudioSessionNoError);
    RouteNotices notices;
    std::atomic<Float64> listened{0};
    ASSERT_EQ(AudioSessionAddPropertyListener(
                  kAudioSessionProperty_CurrentHardwareSampleRate,
                  [](void* heard, AudioSessionPropertyID, UInt32, const void* rate) {
                      static_cast<std::atomic<Float64>*>(heard)->store(
                          *static_cast<const Float64*>(rate));
                  },
                  &listened),
              kAudioSessionNoError);
    std::atomic<bool> asks{false};
    Client client([&](const DeviceSlice&) {
        if (asks.exchange(false)) {
            EXPECT_EQ(preferInSession(32000), kAudioSessionNoError);
            EXPECT_EQ(notices.count, 0) << "it does not hold yet";
        }
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    asks = true;  // not while the device is still being started
    EXPECT_TRUE(tqtest::eventually([&] { return notices.count == 1; }));
    EXPECT_EQ(notices.reason, AVAudioSessionRouteChangeReasonRouteConfigurationChange);
    EXPECT_EQ(notices.rate, 32000);
    EXPECT_TRUE(tqtest::eventually([&] { return listened == 32000; }));
    ASSERT_TRUE(client.waitForSlices(client.notes().size() + 8));
    EXPECT_EQ(notices.count, 1);
}

TEST(NullDevice, ARateThatACallbackAsksForIsToldAlsoWhereADurationIsSetMeanwhile) {
    ASSERT_EQ(AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr), kAudioSessionNoError);
    RouteNotices notices;
    std::atomic<bool> asks{false};
    std::atomic<bool> isAsked{false};
    Client client([&](const DeviceSlice&) {
        if (asks.exchange(false)) {
            EXPECT_EQ(preferInSession(32000), kAudioSessionNoError);
            isAsked = true;
            isAsked.notify_all();
            // Who sets the duration waits for the end of this.
            std::this_thread::sleep_for(std::chrono::milliseconds{10});
        }
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    asks = true;  // not while the device is still being started
    isAsked.wait(false);
    const Float32 seconds = 0.02F;
    EXPECT_EQ(AudioSessionSetProperty(kAudioSessionProperty_PreferredHardwareIOBufferDuration,
                                      sizeof seconds, &seconds),
              kAudioSessionNoError);
    EXPECT_TRUE(tqtest::eventually([&] { return notices.count == 1; }));
    EXPECT_EQ(notices.rate, 32000);
}

TEST(NullDevice, ARateIsToldByWhoSetsItOrElseWhenItHolds) {
    ASSERT_EQ(AudioSessionInitialize(nullptr, nullptr, nullptr, nullptr), kAudioSessionNoError);
    RouteNotices notices;
    std::atomic<bool> isToHold{false};
    std::atomic<bool> isHeld{false};
    Client client([&](const DeviceSlice&) {
        isHeld = isToHold.load();
        isToHold.wait(true);
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    isToHold = true;
    ASSERT_TRUE(tqtest::eventually([&] { return isHeld.load(); }));
    EXPECT_EQ(preferInSession(32000), kAudioSessionNoError);
    EXPECT_EQ(notices.count, 0) << "a callback holds it up for longer than its setter waits";
    isToHold = false;
    isToHold.notify_all();
    EXPECT_TRUE(tqtest::eventually([&] { return notices.count == 1; }));
    int changes = 1;
    for (const Float64 rate : {44100, 48000, 32000, 44100, 48000, 32000, 44100, 48000}) {
        EXPECT_EQ(preferInSession(rate), kAudioSessionNoError);
        ++changes;
        EXPECT_TRUE(tqtest::eventually([&] { return notices.count == changes; })) << rate;
    }
    ASSERT_TRUE(client.waitForSlices(client.notes().size() + 8));
    EXPECT_EQ(notices.count, changes) << "never twice";
}

}  // namespace
