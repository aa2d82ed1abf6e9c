#include <AVFoundation/AVFoundation.h>
#include <AudioToolbox/AudioSession.h>
#include <TQPlatform/NullDevice.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device/Device.h"
#include "support/ProgramRunner.h"

/// The children of the fork tests make threads; the thread sanitizer forbids it unless asked.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0";
}

namespace {

using tqplatform::DeviceClient;
using tqplatform::DeviceSlice;
using tqplatform::sharedDevice;
using namespace std::chrono_literals;

constexpr auto kBound = 20s;

UInt64 nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<UInt64>(now.tv_sec) * 1'000'000'000 + static_cast<UInt64>(now.tv_nsec);
}

struct SliceNote {
    AudioTimeStamp time;
    UInt32 frames;
    UInt64 now;
};

/// Notes its slices, lets a test wait for a number of them, and does what the test says in each.
class Client final : public DeviceClient {
  public:
    explicit Client(std::function<void(const DeviceSlice&)> body = {}) : body_(std::move(body)) {
        notes_.reserve(1000);
    }
    ~Client() { sharedDevice().removeClient(*this); }

    void render(const DeviceSlice& slice) noexcept override {
        const UInt64 now = nowNs();
        ++slices;
        {
            const std::lock_guard lock(mutex_);
            notes_.push_back({*slice.time, slice.frames(), now});
            changed_.notify_all();
        }
        if (body_) {
            body_(slice);
        }
    }
    /// False when they do not come within the bound.
    bool waitForSlices(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kBound, [&] { return notes_.size() >= count; });
    }
    std::vector<SliceNote> notes() {
        const std::lock_guard lock(mutex_);
        return notes_;
    }
    /// Without a lock, for the child of a fork.
    std::atomic<int> slices{0};

  private:
    std::function<void(const DeviceSlice&)> body_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<SliceNote> notes_;
};

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
    constexpr UInt64 kLater = 300'000'000;
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

TEST(NullDevice, StartsAgainAfterAllClientsLeft) {
    Client client;
    UInt64 last = 0;
    Float64 samples = -1;
    for (std::size_t round = 1; round <= 5; ++round) {
        const std::size_t before = client.notes().size();
        ASSERT_TRUE(sharedDevice().addClient(client));
        ASSERT_TRUE(client.waitForSlices(before + 2));
        sharedDevice().removeClient(client);
        const auto notes = client.notes();
        for (std::size_t index = before; index < notes.size(); ++index) {
            EXPECT_GT(notes[index].time.mHostTime, last);
            EXPECT_GT(notes[index].time.mSampleTime, samples);
            last = notes[index].time.mHostTime;
            samples = notes[index].time.mSampleTime;
        }
    }
}

TEST(NullDevice, DoesNotEnterAClientAfterItsRemoval) {
    Client witness;
    ASSERT_TRUE(sharedDevice().addClient(witness));
    for (int round = 0; round < 5; ++round) {
        Client client;
        ASSERT_TRUE(sharedDevice().addClient(client));
        ASSERT_TRUE(client.waitForSlices(1));
        sharedDevice().removeClient(client);
        const std::size_t count = client.notes().size();
        ASSERT_TRUE(witness.waitForSlices(witness.notes().size() + 2));
        EXPECT_EQ(client.notes().size(), count);
    }
}

TEST(NullDevice, WaitsForTheSliceOfTheClientThatIsRemoved) {
    std::atomic<int> inside{0};
    Client client([&](const DeviceSlice&) {
        inside = 1;
        for (int turn = 0; turn < 50; ++turn) {
            std::this_thread::yield();
        }
        inside = 0;
    });
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(sharedDevice().addClient(client));
        ASSERT_TRUE(client.waitForSlices(client.notes().size() + 1));
        std::vector<std::thread> removers;
        for (int remover = 0; remover < 2; ++remover) {
            removers.emplace_back([&] {
                sharedDevice().removeClient(client);
                EXPECT_EQ(inside, 0);
            });
        }
        for (auto& remover : removers) {
            remover.join();
        }
    }
}

TEST(NullDevice, ClientsRemoveThemselvesAndOthersFromTheirSlices) {
    Client victim;
    Client* self = nullptr;
    Client client([&](const DeviceSlice&) {
        sharedDevice().removeClient(victim);
        sharedDevice().removeClient(*self);
    });
    Client witness;
    self = &client;
    ASSERT_TRUE(sharedDevice().addClient(victim));
    ASSERT_TRUE(sharedDevice().addClient(witness));
    ASSERT_TRUE(victim.waitForSlices(1));
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(1));
    ASSERT_TRUE(witness.waitForSlices(witness.notes().size() + 1));
    const std::size_t count = victim.notes().size();
    ASSERT_TRUE(witness.waitForSlices(witness.notes().size() + 3));
    EXPECT_EQ(client.notes().size(), 1U);
    EXPECT_EQ(victim.notes().size(), count);
}

TEST(NullDevice, RunsOnANamedThreadOfItsOwnThatTakesNoSignals) {
    std::string name;
    bool blocked = false, inside = false;
    pthread_t thread{};
    Client client([&](const DeviceSlice&) {
        char buffer[16] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof buffer);
        name = buffer;
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGUSR1) == 1 &&
                  sigismember(&mask, SIGALRM) == 1;
        inside = sharedDevice().isDeviceThread();
        thread = pthread_self();
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(1));
    sharedDevice().removeClient(client);
    EXPECT_EQ(name, "TQAudioDevice");
    EXPECT_TRUE(blocked);
    EXPECT_TRUE(inside);
    EXPECT_FALSE(pthread_equal(thread, pthread_self()));
    EXPECT_FALSE(sharedDevice().isDeviceThread());
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0);
}

TEST(NullDevice, HasOneThreadHoweverOftenItIsStarted) {
    const auto deviceThreads = [] {
        int count = 0;
        DIR* const tasks = opendir("/proc/self/task");
        while (const dirent* const task = readdir(tasks)) {
            std::ifstream comm(std::string("/proc/self/task/") + task->d_name + "/comm");
            std::string name;
            count += std::getline(comm, name) && name == "TQAudioDevice" ? 1 : 0;
        }
        closedir(tasks);
        return count;
    };
    EXPECT_EQ(deviceThreads(), 0);
    EXPECT_EQ(sharedDevice().name(), "null");
    EXPECT_EQ(deviceThreads(), 0);
    for (int round = 0; round < 3; ++round) {
        Client client;
        ASSERT_TRUE(sharedDevice().addClient(client));
        ASSERT_TRUE(client.waitForSlices(1));
        EXPECT_EQ(deviceThreads(), 1);
    }
}

TEST(NullDeviceStress, ClientsComeAndGoWhileSlicesRun) {
    Client witness;
    ASSERT_TRUE(sharedDevice().addClient(witness));
    const auto churn = [] {
        for (int turn = 0; turn < 3000; ++turn) {
            auto memory = std::make_unique<std::vector<int>>(64, 0);
            Client client([&](const DeviceSlice&) { ++memory->front(); });
            EXPECT_TRUE(sharedDevice().addClient(client));
            if (turn % 50 == 0) {
                EXPECT_TRUE(client.waitForSlices(1));
            }
            sharedDevice().removeClient(client);
            memory.reset();
        }
    };
    std::thread one(churn), two(churn);
    one.join();
    two.join();
    const std::size_t count = witness.notes().size();
    EXPECT_TRUE(witness.waitForSlices(count + 2));
}

/// Runs `body` in a child and says whether it returned true within the bound.
bool inChild(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

TEST(NullDeviceFork, ChildPlaysItsOwnClientsAndNotItsParents) {
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(2));
    // A fork can come at any moment of the device's thread.
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(inChild([&] {
            const int before = client.slices;
            Client own;
            const bool runs = sharedDevice().addClient(own) && own.waitForSlices(3);
            sharedDevice().removeClient(client);
            return runs && client.slices == before;
        }));
    }
    EXPECT_TRUE(client.waitForSlices(client.notes().size() + 2));
}

TEST(NullDeviceFork, ChildMayComeBeforeTheFirstUse) {
    EXPECT_TRUE(inChild([] {
        Client own;
        return sharedDevice().addClient(own) && own.waitForSlices(2);
    }));
    Client client;
    ASSERT_TRUE(sharedDevice().addClient(client));
    EXPECT_TRUE(client.waitForSlices(2));
}

TEST(NullDeviceFork, AClientMayForkInItsSlice) {
    std::atomic<int> result{-1};
    Client client([&](const DeviceSlice&) {
        if (result == -1) {
            result = inChild([] { return sharedDevice().isDeviceThread(); }) ? 1 : 0;
        }
    });
    ASSERT_TRUE(sharedDevice().addClient(client));
    ASSERT_TRUE(client.waitForSlices(2));
    EXPECT_EQ(result, 1);
}

/// Lives on in the slices until the process is gone.
class Immortal final : public DeviceClient {
  public:
    void render(const DeviceSlice& slice) noexcept override {
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            slice.output.at(0, frame) = 1;
        }
        slices.fetch_add(1);
        slices.notify_all();
    }
    std::atomic<int> slices{0};
};

TEST(NullDeviceExit, AProcessMayEndWhileSlicesRun) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static Immortal& client = *new Immortal;
            if (!sharedDevice().addClient(client)) {
                _exit(1);
            }
            client.slices.wait(0);
            std::exit(7);
        },
        testing::ExitedWithCode(7), "^$");
}

}  // namespace
