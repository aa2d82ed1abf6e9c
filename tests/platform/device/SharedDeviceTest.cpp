#include <TQPlatform/ManualDevice.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

#include "device/Device.h"

namespace {

using tqplatform::makeDevice;
using tqplatform::sharedDevice;

TEST(SharedDevice, IsChosenOnceForAllThreads) {
    std::vector<tqplatform::Device*> seen(8);
    std::vector<std::thread> threads;
    for (auto& device : seen) {
        threads.emplace_back([&device] { device = &sharedDevice(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    setenv("TQ_AUDIO_DEVICE", "manual", 1);
    for (const auto* device : seen) {
        EXPECT_EQ(device, &sharedDevice());
    }
    EXPECT_EQ(sharedDevice().name(), "null");
}

TEST(SharedDevice, IsReadFromTheEnvironmentAtItsFirstUse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("TQ_AUDIO_DEVICE", "manual", 1);
            _exit(sharedDevice().name() == "manual" ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(
        {
            unsetenv("TQ_AUDIO_DEVICE");
            _exit(sharedDevice().name() == "auto" ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^$");
}

TEST(SharedDevice, UnknownNamesAreReportedOnceAndGiveTheNullDevice) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("TQ_AUDIO_DEVICE", "xyz", 1);
            static_cast<void>(sharedDevice());
            _exit(sharedDevice().name() == "null" ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^TQ_AUDIO_DEVICE=xyz: unknown, using null\n$");
}

TEST(MakeDevice, KnowsItsBackendsByName) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(makeDevice("manual")->name(), "manual");
    EXPECT_EQ(makeDevice("null")->name(), "null");
    for (const char* name : {"cubeb", "cubeb:pulse", "cubeb:alsa", "cubeb:jack"}) {
        EXPECT_EQ(makeDevice(name)->name(), name);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(MakeDevice, AutomaticChoiceLooksForNothingBeforeSomebodyPlays) {
    testing::internal::CaptureStderr();
    for (const char* name : {"auto", "", static_cast<const char*>(nullptr)}) {
        const auto device = makeDevice(name);
        EXPECT_EQ(device->name(), "auto");
        EXPECT_EQ(device->sampleRate(), 48000);
        EXPECT_EQ(device->sliceFrames(), 512U);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(MakeDevice, NamesAreExact) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(makeDevice("Manual")->name(), "null");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "TQ_AUDIO_DEVICE=Manual: unknown, using null\n");
}

TEST(ManualDeviceCalls, AnswerUninitializedOnAnotherDevice) {
    EXPECT_EQ(TQManualDevicePump(512, 0), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(TQManualDeviceSetSampleRate(44100), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(TQManualDeviceSetInput(nullptr, nullptr), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(TQManualDeviceSetOutput(nullptr, nullptr), kAudioUnitErr_Uninitialized);
}

}  // namespace
