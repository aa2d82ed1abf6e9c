#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "AudioHookConfigFixture.h"
#include "audio_hook_config.h"

namespace korva_audio_utils {
namespace {

// Entering and leaving intercepted functions.

TEST_F(AudioHookConfigTest, EnterAndExitKeepTheCountInTheFile) {
    ASSERT_EQ(Init(config_), 0);
    config_.enterHookFunc();
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes(), Page({2}));
    config_.exitHookFunc();
    EXPECT_EQ(CountBytes(), Page({1}));
    config_.exitHookFunc();
    EXPECT_EQ(CountBytes(), Page({}));
}

TEST_F(AudioHookConfigTest, EnterBeforeInitReachesTheFileWithTheNextCallAfterIt) {
    config_.enterHookFunc();
    ASSERT_EQ(Init(config_), 0);
    EXPECT_EQ(CountBytes(), Page({}));
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes(), Page({2}));
}

TEST_F(AudioHookConfigTest, ExitWithoutEnterWrapsBelowZero) {
    ASSERT_EQ(Init(config_), 0);
    config_.exitHookFunc();
    EXPECT_EQ(CountBytes(), Page({255, 255, 255, 255}));
}

TEST_F(AudioHookConfigTest, AfterAnEnableTheFirstCallClearsTheCountAndTheFile) {
    ASSERT_EQ(Init(config_), 0);
    config_.enterHookFunc();
    config_.enterHookFunc();
    ASSERT_EQ(config_.enableHook(1, true), 0);
    EXPECT_EQ(CountBytes()[0], 2);
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes(), Page({}));
    // From now on nothing is stored at all.
    WriteBytes(countPath_, Page({77}));
    config_.enterHookFunc();
    config_.exitHookFunc();
    EXPECT_EQ(CountBytes()[0], 77);
}

TEST_F(AudioHookConfigTest, AfterAnEnableAnExitClearsTheCountToo) {
    ASSERT_EQ(Init(config_), 0);
    config_.enterHookFunc();
    ASSERT_EQ(config_.enableHook(1, true), 0);
    config_.exitHookFunc();
    EXPECT_EQ(CountBytes(), Page({}));
}

TEST_F(AudioHookConfigTest, DisablingOrForbiddingDoesNotStopTheCounting) {
    ASSERT_EQ(Init(config_), 0);
    ASSERT_EQ(config_.enableHook(1, false), 0);
    ASSERT_EQ(config_.forceDisableHook(1, true), 0);
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes()[0], 1);
}

TEST_F(AudioHookConfigTest, GuardsMarkTheirScopeOnTheOneInstance) {
    ASSERT_EQ(AudioHookConfig::getInstance()->init(folder_.path().c_str()), 0);
    {
        const AudioHookFunctionGuards outer;
        EXPECT_EQ(CountBytes()[0], 1);
        {
            const AudioHookFunctionGuards inner;
            EXPECT_EQ(CountBytes()[0], 2);
        }
        EXPECT_EQ(CountBytes()[0], 1);
    }
    EXPECT_EQ(CountBytes()[0], 0);
}

TEST_F(AudioHookConfigTest, WhenAllThreadsAreOutTheFileSaysSo) {
    constexpr int kThreads = 2;
    constexpr int kMostRounds = 50000;
    // Each meeting may cost a whole turn of the scheduler's on a busy machine.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    std::atomic<bool> isOver{false};
    ASSERT_EQ(Init(config_), 0);
    MemoryFile file(countPath_.c_str());
    ASSERT_TRUE(file.isUsable());
    const std::atomic_ref<std::uint32_t> count(*static_cast<std::uint32_t*>(file.data()));
    // Threads leave together, round after round, and look at the file when all are out.
    std::atomic<int> arrived{0};
    std::atomic<int> wrong{0};
    const auto meet = [&arrived](int all) {
        ++arrived;
        // Spinning keeps the threads close together; a thread without a core must not starve.
        for (int spins = 0; arrived.load() < all; ++spins) {
            if (spins > 2000) {
                std::this_thread::yield();
            }
        }
    };
    std::vector<std::thread> threads;
    for (int k = 0; k < kThreads; ++k) {
        threads.emplace_back([&, k] {
            std::atomic<int> delay{0};
            for (int round = 0; round < kMostRounds && !isOver; ++round) {
                config_.enterHookFunc();
                meet((3 * round + 1) * kThreads);
                // One leaves a little later than the other, differently in each round.
                for (delay = k * (round % 32); delay > 0; --delay) {
                }
                config_.exitHookFunc();
                meet((3 * round + 2) * kThreads);
                wrong += count.load() == 0 ? 0 : 1;
                if (k == 0) {
                    isOver = std::chrono::steady_clock::now() > end;
                }
                meet((3 * round + 3) * kThreads);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(AudioHookConfigTest, RenderThreadsMayEnterWhileTheStoreIsInitialisedAndChanged) {
    setLogHandler(nullptr);
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int k = 0; k < 3; ++k) {
        threads.emplace_back([&] {
            while (!done.load()) {
                config_.enterHookFunc();
                config_.exitHookFunc();
                config_.getPreLaunchState();
            }
        });
    }
    ASSERT_EQ(Init(config_), 0);
    for (unsigned id = 0; id < 15; ++id) {
        EXPECT_EQ(config_.enableHook(id, id % 2 == 0), 0);
        EXPECT_TRUE(config_.isHookEnable());
        config_.setRetryCount(id + 1);
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes(), Page({}));
}

}  // namespace
}  // namespace korva_audio_utils
