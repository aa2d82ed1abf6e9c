// The null device's thread, the clients that come and go on it, and its processes.

#include <TQPlatform/NullDevice.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "NullDeviceScene.h"
#include "support/ProgramRunner.h"

/// The children of the fork tests make threads; the thread sanitizer forbids it unless asked.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0";
}

namespace {

using namespace tqtest::nulldevice;
using namespace std::chrono_literals;

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
