#include <TQPlatform/ManualDevice.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <thread>
#include <vector>

#include "device/Device.h"
#include "support/AllocationCounter.h"
#include "support/Event.h"

namespace {

using tqplatform::Device;
using tqplatform::DeviceClient;
using tqplatform::DeviceSlice;
using tqplatform::sharedDevice;

/// Does what a test says in each slice, and counts.
class Client final : public DeviceClient {
  public:
    explicit Client(std::function<void(const DeviceSlice&)> body = {}) : body_(std::move(body)) {}
    void render(const DeviceSlice& slice) noexcept override {
        ++slices;
        if (body_) {
            body_(slice);
        }
    }
    int slices = 0;

  private:
    std::function<void(const DeviceSlice&)> body_;
};

void add(DeviceClient& client) {
    ASSERT_TRUE(sharedDevice().addClient(client));
}

/// What the device plays, kept.
struct Played {
    std::vector<std::vector<float>> channels;
    AudioTimeStamp time{};
    int calls = 0;

    static void tap(void* refCon, const AudioTimeStamp* time, UInt32 channels, UInt32 frames,
                    const float* const* planes) {
        auto& self = *static_cast<Played*>(refCon);
        ++self.calls;
        self.time = *time;
        self.channels.clear();
        for (UInt32 channel = 0; channel < channels; ++channel) {
            self.channels.emplace_back(planes[channel], planes[channel] + frames);
        }
    }
};

TEST(ManualDevice, IsWhatTheEnvironmentNames) {
    const Device& device = sharedDevice();
    EXPECT_EQ(device.name(), "manual");
    EXPECT_EQ(device.sampleRate(), 48000);
    EXPECT_EQ(device.outputChannels(), 2U);
    EXPECT_EQ(device.inputChannels(), 2U);
    EXPECT_EQ(device.maximumFrames(), 4096U);
    EXPECT_EQ(&device, &sharedDevice());
}

TEST(ManualDevice, RendersExactlyTheFramesAndTheTimeOfThePump) {
    std::vector<AudioTimeStamp> times;
    std::vector<UInt32> frames;
    Client client([&](const DeviceSlice& slice) {
        times.push_back(*slice.time);
        frames.push_back(slice.frames());
    });
    add(client);
    EXPECT_EQ(TQManualDevicePump(512, 1000), noErr);
    EXPECT_EQ(TQManualDevicePump(1, 2000), noErr);
    EXPECT_EQ(TQManualDevicePump(4096, 2001), noErr);
    EXPECT_EQ(frames, (std::vector<UInt32>{512, 1, 4096}));
    ASSERT_EQ(times.size(), 3U);
    EXPECT_EQ(times[0].mSampleTime, 0);
    EXPECT_EQ(times[1].mSampleTime, 512);
    EXPECT_EQ(times[2].mSampleTime, 513);
    EXPECT_EQ(times[0].mHostTime, 1000U);
    EXPECT_EQ(times[1].mHostTime, 2000U);
    EXPECT_EQ(times[2].mHostTime, 2001U);
    for (const auto& time : times) {
        EXPECT_EQ(time.mRateScalar, 1);
        EXPECT_EQ(time.mFlags, 7U);
    }
}

TEST(ManualDevice, RefusesFrameCountsOutOfRange) {
    Client client;
    add(client);
    EXPECT_EQ(TQManualDevicePump(0, 0), kAudio_ParamError);
    EXPECT_EQ(TQManualDevicePump(4097, 0), kAudio_ParamError);
    EXPECT_EQ(TQManualDevicePump(0xFFFFFFFF, 0), kAudio_ParamError);
    EXPECT_EQ(client.slices, 0);
}

TEST(ManualDevice, SetsItsRateWithinBounds) {
    EXPECT_EQ(TQManualDeviceSetSampleRate(44100), noErr);
    EXPECT_EQ(sharedDevice().sampleRate(), 44100);
    for (const Float64 rate : {999.0, 384001.0, 0.0, -48000.0, std::nan(""), double{INFINITY}}) {
        EXPECT_EQ(TQManualDeviceSetSampleRate(rate), kAudio_ParamError);
    }
    EXPECT_EQ(sharedDevice().sampleRate(), 44100);
    EXPECT_EQ(TQManualDeviceSetSampleRate(1000), noErr);
    EXPECT_EQ(TQManualDeviceSetSampleRate(384000), noErr);
    EXPECT_EQ(sharedDevice().sampleRate(), 384000);
}

TEST(ManualDevice, PlaysTheSumOfAllClientsUnclipped) {
    const auto fill = [](const DeviceSlice& slice, float left, float right) {
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            slice.output.at(0, frame) += left;
            slice.output.at(1, frame) += right;
        }
    };
    Client one([&](const DeviceSlice& slice) { fill(slice, 0.75F, -0.5F); });
    Client two([&](const DeviceSlice& slice) { fill(slice, 0.75F, 0.25F); });
    add(one);
    add(two);
    Played played;
    ASSERT_EQ(TQManualDeviceSetOutput(&Played::tap, &played), noErr);
    for (int pump = 1; pump <= 2; ++pump) {
        ASSERT_EQ(TQManualDevicePump(3, 50), noErr);
        EXPECT_EQ(played.calls, pump);
        EXPECT_EQ(played.time.mHostTime, 50U);
        EXPECT_EQ(played.channels,
                  (std::vector<std::vector<float>>{{1.5F, 1.5F, 1.5F}, {-0.25F, -0.25F, -0.25F}}));
    }
    ASSERT_EQ(TQManualDeviceSetOutput(nullptr, nullptr), noErr);
    ASSERT_EQ(TQManualDevicePump(3, 50), noErr);
    EXPECT_EQ(played.calls, 2);
}

TEST(ManualDevice, PlaysSilenceWithoutClients) {
    Played played;
    ASSERT_EQ(TQManualDeviceSetOutput(&Played::tap, &played), noErr);
    ASSERT_EQ(TQManualDevicePump(2, 0), noErr);
    EXPECT_EQ(played.channels, (std::vector<std::vector<float>>{{0, 0}, {0, 0}}));
}

TEST(ManualDevice, GivesEveryClientZeroedPlanesOfItsOwn) {
    bool clean = true;
    const auto dirty = [&](const DeviceSlice& slice) {
        for (UInt32 channel = 0; channel < 2; ++channel) {
            for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
                clean = clean && slice.output.at(channel, frame) == 0.0F;
                slice.output.at(channel, frame) = 5.0F;
            }
        }
    };
    Client one(dirty), two(dirty);
    add(one);
    add(two);
    TQManualDevicePump(4096, 0);
    TQManualDevicePump(100, 0);
    EXPECT_EQ(one.slices + two.slices, 4);
    EXPECT_TRUE(clean);
}

TEST(ManualDevice, HearsWhatItsInputSays) {
    std::vector<float> heard;
    Client client([&](const DeviceSlice& slice) {
        heard.assign(slice.input.plane(1), slice.input.plane(1) + slice.frames());
    });
    add(client);
    ASSERT_EQ(TQManualDevicePump(3, 0), noErr);
    EXPECT_EQ(heard, (std::vector<float>{0, 0, 0}));

    int calls = 0;
    const TQManualDeviceInput input = [](void* refCon, UInt32 channels, UInt32 frames,
                                         float* const* planes) {
        ++*static_cast<int*>(refCon);
        ASSERT_EQ(channels, 2U);
        // The last frame stays as it came.
        for (UInt32 frame = 0; frame + 1 < frames; ++frame) {
            ASSERT_EQ(planes[1][frame], 0.0F);
            planes[1][frame] = static_cast<float>(frame + 1);
        }
    };
    ASSERT_EQ(TQManualDeviceSetInput(input, &calls), noErr);
    ASSERT_EQ(TQManualDevicePump(4, 0), noErr);
    EXPECT_EQ(heard, (std::vector<float>{1, 2, 3, 0}));
    ASSERT_EQ(TQManualDevicePump(3, 0), noErr);
    EXPECT_EQ(heard, (std::vector<float>{1, 2, 0}));
    EXPECT_EQ(calls, 2);

    ASSERT_EQ(TQManualDeviceSetInput(nullptr, nullptr), noErr);
    ASSERT_EQ(TQManualDevicePump(2, 0), noErr);
    EXPECT_EQ(heard, (std::vector<float>{0, 0}));
}

TEST(ManualDevice, RefusesItsCallsFromInsideASlice) {
    Client client([&](const DeviceSlice&) {
        EXPECT_EQ(TQManualDevicePump(64, 0), kAudioUnitErr_CannotDoInCurrentContext);
        EXPECT_EQ(TQManualDeviceSetSampleRate(44100), kAudioUnitErr_CannotDoInCurrentContext);
        EXPECT_EQ(TQManualDeviceSetInput(nullptr, nullptr), kAudioUnitErr_CannotDoInCurrentContext);
        EXPECT_EQ(TQManualDeviceSetOutput(nullptr, nullptr),
                  kAudioUnitErr_CannotDoInCurrentContext);
    });
    add(client);
    EXPECT_EQ(TQManualDevicePump(64, 0), noErr);
    EXPECT_EQ(TQManualDevicePump(64, 0), noErr);
    EXPECT_EQ(client.slices, 2);
    EXPECT_EQ(sharedDevice().sampleRate(), 48000);
}

TEST(ManualDevice, KnowsTheThreadInsideASlice) {
    bool inside = false, elsewhere = true;
    Client client([&](const DeviceSlice&) {
        inside = sharedDevice().isDeviceThread();
        std::thread([&] { elsewhere = sharedDevice().isDeviceThread(); }).join();
    });
    add(client);
    EXPECT_FALSE(sharedDevice().isDeviceThread());
    TQManualDevicePump(64, 0);
    EXPECT_TRUE(inside);
    EXPECT_FALSE(elsewhere);
    EXPECT_FALSE(sharedDevice().isDeviceThread());
}

TEST(ManualDeviceClients, RenderInTheOrderOfAdding) {
    std::vector<int> order;
    Client one([&](const DeviceSlice&) { order.push_back(1); });
    Client two([&](const DeviceSlice&) { order.push_back(2); });
    Client three([&](const DeviceSlice&) { order.push_back(3); });
    add(one);
    add(two);
    add(three);
    add(one);  // is in the list already and keeps its place
    TQManualDevicePump(1, 0);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    sharedDevice().removeClient(one);
    add(one);
    order.clear();
    TQManualDevicePump(1, 0);
    EXPECT_EQ(order, (std::vector<int>{2, 3, 1}));
}

TEST(ManualDeviceClients, AreNotEnteredOnceRemoved) {
    Client client;
    add(client);
    TQManualDevicePump(1, 0);
    sharedDevice().removeClient(client);
    sharedDevice().removeClient(client);
    TQManualDevicePump(1, 0);
    EXPECT_EQ(client.slices, 1);
}

TEST(ManualDeviceClients, UnknownOnesAreIgnoredOnRemoval) {
    Client known, unknown;
    add(known);
    sharedDevice().removeClient(unknown);
    TQManualDevicePump(1, 0);
    EXPECT_EQ(known.slices, 1);
}

TEST(ManualDeviceClients, MayRemoveThemselvesInASlice) {
    Client* self = nullptr;
    Client client([&](const DeviceSlice&) { sharedDevice().removeClient(*self); });
    Client after;
    self = &client;
    add(client);
    add(after);
    TQManualDevicePump(1, 0);
    TQManualDevicePump(1, 0);
    EXPECT_EQ(client.slices, 1);
    EXPECT_EQ(after.slices, 2);
}

TEST(ManualDeviceClients, MayRemoveOthersInASliceEvenThoseWhoseTurnWouldCome) {
    Client before, after;
    Client client([&](const DeviceSlice&) {
        sharedDevice().removeClient(before);
        sharedDevice().removeClient(after);
    });
    add(before);
    add(client);
    add(after);
    TQManualDevicePump(1, 0);
    TQManualDevicePump(1, 0);
    EXPECT_EQ(before.slices, 1);
    EXPECT_EQ(client.slices, 2);
    EXPECT_EQ(after.slices, 0);
}

TEST(ManualDeviceClients, AddedInASliceRenderFromTheNextOn) {
    std::vector<Client> others(50);
    Client client([&](const DeviceSlice&) {
        for (auto& other : others) {
            add(other);
        }
    });
    add(client);
    TQManualDevicePump(1, 0);
    EXPECT_EQ(others[0].slices, 0);
    TQManualDevicePump(1, 0);
    for (const auto& other : others) {
        EXPECT_EQ(other.slices, 1);
    }
}

TEST(ManualDeviceClients, ThatRemoveAndAddThemselvesRenderOncePerSlice) {
    Client* self = nullptr;
    Client client([&](const DeviceSlice&) {
        sharedDevice().removeClient(*self);
        add(*self);
    });
    self = &client;
    add(client);
    for (int pump = 1; pump <= 3; ++pump) {
        TQManualDevicePump(1, 0);
        EXPECT_EQ(client.slices, pump);
    }
}

/// A client that stays in its slice until its gate is opened.
struct Held {
    Gate gate;
    Client client{[this](const DeviceSlice&) { gate.enterAndWait(); }};
};

TEST(ManualDeviceClients, RemovalByTwoThreadsWaitsForTheSliceInBoth) {
    Held held;
    add(held.client);
    std::thread pump([] { TQManualDevicePump(64, 0); });
    held.gate.waitUntilEntered();
    std::atomic<bool> released{false};
    std::atomic<int> early{0};
    const auto remove = [&] {
        sharedDevice().removeClient(held.client);
        early += released ? 0 : 1;
    };
    std::thread one(remove), two(remove);
    // Both had the chance to return: another client comes and goes meanwhile.
    Client other;
    for (int turn = 0; turn < 1000; ++turn) {
        add(other);
        sharedDevice().removeClient(other);
        std::this_thread::yield();
    }
    released = true;
    held.gate.open();
    one.join();
    two.join();
    pump.join();
    EXPECT_EQ(early, 0);
    TQManualDevicePump(64, 0);
    EXPECT_EQ(held.client.slices, 1);
}

TEST(ManualDeviceClients, RemovalDoesNotWaitForTheSliceOfAnother) {
    Held held;
    Client other;
    add(held.client);
    add(other);
    std::thread pump([] { TQManualDevicePump(64, 0); });
    held.gate.waitUntilEntered();
    sharedDevice().removeClient(other);  // would hang if it waited
    held.gate.open();
    pump.join();
    EXPECT_EQ(other.slices, 0);
}

TEST(ManualDevice, RefusesASecondPumpMeanwhile) {
    Held held;
    add(held.client);
    std::thread pump([] { TQManualDevicePump(64, 0); });
    held.gate.waitUntilEntered();
    EXPECT_EQ(TQManualDevicePump(64, 0), kAudioUnitErr_CannotDoInCurrentContext);
    held.gate.open();
    pump.join();
    EXPECT_EQ(TQManualDevicePump(64, 0), noErr);
}

TEST(ManualDevice, AllocatesNothingInASliceOnceWarm) {
    Client one, two;
    add(one);
    add(two);
    Played played;
    TQManualDevicePump(64, 0);
    const AllocationCounter allocations;
    for (int pump = 0; pump < 100; ++pump) {
        TQManualDevicePump(512, 0);
    }
    // Leaving is part of a slice, too: units stop from inside their callbacks.
    sharedDevice().removeClient(one);
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(ManualDeviceStress, ClientsComeAndGoWhileSlicesRun) {
    std::atomic<bool> stop{false};
    std::thread pump([&] {
        while (!stop) {
            TQManualDevicePump(16, 0);
        }
    });
    // A client that renders after its removal would write to a dead vector.
    const auto churn = [] {
        for (int turn = 0; turn < 2000; ++turn) {
            auto memory = std::make_unique<std::vector<int>>(64, 0);
            Client client([&](const DeviceSlice&) { ++memory->front(); });
            EXPECT_TRUE(sharedDevice().addClient(client));
            if (turn % 3 == 0) {
                std::this_thread::yield();
            }
            sharedDevice().removeClient(client);
            memory.reset();
        }
    };
    std::thread one(churn), two(churn);
    one.join();
    two.join();
    stop = true;
    pump.join();
}

TEST(ManualDeviceFork, ChildHasADeviceOfItsOwnWithoutClients) {
    Held held;
    add(held.client);
    std::thread pump([] { TQManualDevicePump(64, 0); });
    held.gate.waitUntilEntered();
    // The pumping thread does not exist in the child, nor does whoever else held a lock.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        Client client;
        const bool added = sharedDevice().addClient(client);
        const OSStatus status = TQManualDevicePump(64, 0);
        sharedDevice().removeClient(client);
        sharedDevice().removeClient(held.client);
        _exit(added && status == noErr && client.slices == 1 && held.client.slices == 1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    held.gate.open();
    pump.join();
}

}  // namespace
