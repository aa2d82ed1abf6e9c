// The thread that calls a device: each job runs once, also where the one before takes long to end.

#include "device/handover/HeardThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace tqplatform {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::minutes kLong{1};

TEST(HeardThread, AJobIsOverOnceWhatItOwnsHasGone) {
    std::atomic<bool> hasRun{false};
    std::atomic<bool> mayGo{false};
    const auto slowly = [&mayGo](const int* value) {
        while (!mayGo) {
            std::this_thread::sleep_for(milliseconds{1});
        }
        delete value;
    };
    HeardThread thread;
    thread.begin([&hasRun, owned = std::shared_ptr<const int>(new int(1), slowly)] {
        hasRun = *owned == 1;
    });
    while (!hasRun) {
        std::this_thread::sleep_for(milliseconds{1});
    }
    EXPECT_FALSE(thread.await(milliseconds{50}));
    mayGo = true;
    EXPECT_TRUE(thread.await(kLong));
}

TEST(HeardThread, EveryJobIsRun) {
    HeardThread thread;
    int count = 0;
    for (int job = 0; job < 10'000; ++job) {
        // What it owns takes a moment to go.
        thread.begin([&count, owned = std::make_shared<std::thread>()] { ++count; });
        while (!thread.await(milliseconds{0})) {
        }
    }
    EXPECT_EQ(count, 10'000);
}

TEST(HeardThread, WhoLeavesWaitsForNoJob) {
    const auto mayEnd = std::make_shared<std::atomic<bool>>(false);
    const auto hasEnded = std::make_shared<std::atomic<bool>>(false);
    {
        HeardThread thread;
        thread.begin([mayEnd, hasEnded] {
            while (!*mayEnd) {
                std::this_thread::sleep_for(milliseconds{1});
            }
            *hasEnded = true;
        });
        EXPECT_FALSE(thread.await(milliseconds{1}));
    }
    EXPECT_FALSE(*hasEnded);
    *mayEnd = true;
    while (!*hasEnded) {
        std::this_thread::sleep_for(milliseconds{1});
    }
}

}  // namespace
}  // namespace tqplatform
