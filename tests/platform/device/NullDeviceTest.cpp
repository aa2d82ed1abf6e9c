// The null device's clock: its slices, its pace and its time stamps.

#include <TQPlatform/NullDevice.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <vector>

#include "NullDeviceScene.h"

namespace {

using namespace tqtest::nulldevice;
using namespace std::chrono_literals;

TEST(NullDevice, IsStereoAt48000In512Frames) {
    EXPECT_EQ(sharedDevice().name(), "null");
    EXPECT_EQ(sharedDevice().sampleRate(), 48000);
    EXPECT_EQ(sharedDevice().outputChannels(), 2U);
    EXPECT_EQ(sharedDevice().inputChannels(), 2U);
    EXPECT_EQ(sharedDevice().maximumFrames(), 4096U) << "a program may prefer longer periods";
}

TEST(NullDevice, GivesSlicesOfSilenceOnZeroedPlanes) {
    std::atomic<int> dirty{0};
    Client client([&](const DeviceSlice& slice) {
        for (UInt32 channel = 0; channel < 2; ++channel) {
            for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
                dirty +=
                    slice.input.at(channel, frame) != 0 || slice.output.at(channel, frame) != 0;
                slice.output.at(channel, frame) = 1;
            }
        }
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(3));
    EXPECT_EQ(dirty, 0);
}

TEST(NullDevice, ItsFirstBlockIsPlayedWhenItIsToBe) {
    constexpr UInt64 kLater = 800'000'000;  // a thread may be late by much of it
    for (const bool isFarAway : {false, true}) {
        // A device has no more than a second in hand.
        const UInt64 now = nowNs();
        const UInt64 begin = now + (isFarAway ? 100 * kLater : kLater);
        sharedDevice().backend().beginAt(begin);
        Client client;
        ASSERT_TRUE(sharedDevice().addClient(client));
        ASSERT_TRUE(client.waitForSlices(1));
        const UInt64 first = client.notes()[0].time.mHostTime;
        EXPECT_EQ(first >= begin, !isFarAway);
        EXPECT_GE(first, now);
        if (!isFarAway) {
            EXPECT_EQ(first, begin);
        }
    }
}

TEST(NullDevice, KeepsThePaceOfItsRate) {
    Client client;
    const UInt64 start = nowNs();
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(48));  // about half a second
    const UInt64 end = nowNs();
    const auto notes = client.notes();
    // Never early; how late is up to the machine, within reason.
    constexpr UInt64 kPeriod = 512'000'000'000 / 48000;
    for (const SliceNote& note : notes) {
        EXPECT_EQ(note.frames, 512U);
        EXPECT_GE(note.now + kPeriod + 1, note.time.mHostTime);
        EXPECT_GE(note.time.mHostTime, start + kPeriod);
    }
    EXPECT_GE(end - start, 47 * kPeriod);
    EXPECT_LE(end - start, 10 * 47 * kPeriod);
}

TEST(NullDevice, HurriesForSoMuchSoundAndKeepsItsPaceAfterIt) {
    EXPECT_EQ(TQNullDeviceHurry(-1), kAudio_ParamError);
    EXPECT_EQ(TQNullDeviceHurry(61), kAudio_ParamError);
    EXPECT_EQ(TQNullDeviceHurry(std::nan("")), kAudio_ParamError);
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(1));
    ASSERT_EQ(TQNullDeviceHurry(10), 0);
    constexpr std::size_t kHurried = 10 * 48000 / 512;
    ASSERT_TRUE(client.waitForSlices(kHurried + 2));
    const auto notes = client.notes();
    // The stamps go on as if every period had been waited for, so they run ahead of the clock...
    const SliceNote& last = notes[kHurried];
    EXPECT_GT(last.time.mHostTime, last.now + 5'000'000'000U) << "ten seconds took five or more";
    EXPECT_NEAR(static_cast<double>(last.time.mHostTime - notes[0].time.mHostTime),
                kHurried * 512e9 / 48000, 1e3);
    // ...and the next period waits for its own time.
    const auto seen = client.slices.load();
    std::this_thread::sleep_for(50ms);
    EXPECT_LE(client.slices.load(), seen + 2);
}

TEST(NullDevice, HurriesOnWhileItIsAheadOfItsTime) {
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(1));
    constexpr std::size_t kHurried = 5 * 48000 / 512;
    const UInt64 start = nowNs();
    for (std::size_t times = 1; times <= 3; ++times) {
        ASSERT_EQ(TQNullDeviceHurry(5), 0);
        ASSERT_TRUE(client.waitForSlices(times * kHurried));
    }
    EXPECT_LT(nowNs() - start, 5'000'000'000U) << "it waited until the clock had caught up";
}

TEST(NullDevice, StampsSampleTimesByFramesAndHostTimesByTheGridOfItsPeriods) {
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(40));
    const auto notes = client.notes();
    for (std::size_t index = 1; index < 40; ++index) {
        const auto& before = notes[index - 1].time;
        const auto& time = notes[index].time;
        EXPECT_EQ(time.mFlags, 7U);
        EXPECT_EQ(time.mRateScalar, 1);
        EXPECT_EQ(time.mSampleTime, before.mSampleTime + 512);
        ASSERT_GT(time.mHostTime, before.mHostTime);
        // Whole periods, several of them where a stall was skipped; each rounded by under 1 ns.
        const UInt64 thirds = (time.mHostTime - before.mHostTime) * 3;
        const UInt64 off = thirds % 32'000'000;
        EXPECT_LE(std::min(off, 32'000'000 - off), 6U) << thirds;
    }
}

}  // namespace
