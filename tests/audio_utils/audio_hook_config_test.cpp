#include "audio_hook_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "fail_system_call.h"
#include "log_recorder.h"
#include "temporary_folder.h"

namespace korva_audio_utils {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const auto kPage = static_cast<std::size_t>(getpagesize());

/// A page that starts with these bytes.
Bytes Page(Bytes start) {
    start.resize(kPage);
    return start;
}

/// Opens the table to the test, so that it can hold more than the public operations let in.
class OpenConfig : public AudioHookConfigImpl {
  public:
    void Insert(unsigned id) { items_[id] = ConfigItem{id, true, false}; }
};

class AudioHookConfigTest : public testing::Test {
  protected:
    int Init(AudioHookConfigImpl& config) { return config.init(folder_.Path().c_str()); }
    Bytes ConfigBytes() const { return ReadBytes(configPath_); }
    Bytes CountBytes() const { return ReadBytes(countPath_); }
    static void ExpectState(AudioHookConfigImpl& config, int enterCount, int retryCount) {
        const PreLaunchState state = config.getPreLaunchState();
        EXPECT_EQ(state.enterCount, enterCount);
        EXPECT_EQ(state.retryCount, retryCount);
    }
    /// The utility lines that init and later calls wrote, without those of the files.
    std::vector<std::string> StoreLines() const {
        std::vector<std::string> lines = log_.Infos();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("mmap success") || line.starts_with("Success create");
        });
        return lines;
    }

    TemporaryFolder folder_;
    std::string configPath_ = folder_.File("korva_audio_hook_config.flag");
    std::string countPath_ = folder_.File("korva_audio_hook_func_count.flag");
    LogRecorder log_;
    AudioHookConfigImpl config_;
};

TEST_F(AudioHookConfigTest, InstanceIsAlwaysTheSame) {
    EXPECT_NE(AudioHookConfig::getInstance(), nullptr);
    EXPECT_EQ(AudioHookConfig::getInstance(), AudioHookConfig::getInstance());
}

TEST_F(AudioHookConfigTest, InstanceIsMadeOnceWhenManyThreadsAskFirst) {
    std::vector<AudioHookConfig*> seen(4);
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = AudioHookConfig::getInstance(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, testing::Each(seen[0]));
}

TEST_F(AudioHookConfigTest, BeforeInitNothingIsEnabledAndChangesAreRefused) {
    EXPECT_FALSE(config_.isInitSuccess());
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(config_.enableHook(1, true), 3);
    EXPECT_EQ(config_.forceDisableHook(1, true), 3);
    EXPECT_FALSE(config_.parseConfigList());
    config_.writeToMMap(true);
    EXPECT_THAT(log_.All(), IsEmpty());
    ExpectState(config_, 0, 2);
}

TEST_F(AudioHookConfigTest, FreshFolderGivesTwoZeroPagesAndNoHooks) {
    EXPECT_EQ(Init(config_), 0);
    EXPECT_TRUE(config_.isInitSuccess());
    EXPECT_FALSE(config_.isHookEnable());
    ExpectState(config_, 0, 0);
    EXPECT_EQ(ConfigBytes(), Page({}));
    EXPECT_EQ(CountBytes(), Page({}));
    EXPECT_THAT(StoreLines(),
                ElementsAre("parseConfigList: length: 0, count: 0", "parseCountFile: 0"));
    EXPECT_THAT(log_.Errors(), IsEmpty());
}

TEST_F(AudioHookConfigTest, FolderMayEndInASlash) {
    EXPECT_EQ(config_.init((folder_.Path() + "/").c_str()), 0);
    EXPECT_TRUE(std::filesystem::exists(configPath_));
    EXPECT_TRUE(std::filesystem::exists(countPath_));
}

TEST_F(AudioHookConfigTest, EnableWritesTheTableByteForByte) {
    ASSERT_EQ(Init(config_), 0);
    log_.Clear();
    EXPECT_EQ(config_.enableHook(0x01020304, true), 0);
    EXPECT_EQ(config_.forceDisableHook(7, true), 0);
    EXPECT_EQ(config_.enableHook(9, false), 0);
    EXPECT_EQ(ConfigBytes(), Page({3, 0, 0, 0, 2, 0, 0, 0,  //
                                   7, 0, 0, 0, 0, 1, 0, 0,  //
                                   9, 0, 0, 0, 0, 0, 0, 0,  //
                                   4, 3, 2, 1, 1, 0, 0, 0}));
    EXPECT_THAT(StoreLines(),
                ElementsAre("Success to wirte config to file: length: 1, count: 2",
                            "item: 16909060, 1",  //
                            "Success to wirte config to file: length: 2, count: 2", "item: 7, 0",
                            "item: 16909060, 1",  //
                            "Success to wirte config to file: length: 3, count: 2", "item: 7, 0",
                            "item: 9, 0", "item: 16909060, 1"));
}

TEST_F(AudioHookConfigTest, EnableArmsTheGuardAndHooksAreEnabled) {
    ASSERT_EQ(Init(config_), 0);
    EXPECT_EQ(config_.enableHook(1, true), 0);
    EXPECT_TRUE(config_.isHookEnable());
    AudioHookConfigImpl next;
    ASSERT_EQ(Init(next), 0);
    EXPECT_TRUE(next.isHookEnable());
    ExpectState(next, 0, 2);
}

TEST_F(AudioHookConfigTest, DisabledHooksAloneEnableNothing) {
    ASSERT_EQ(Init(config_), 0);
    EXPECT_EQ(config_.enableHook(1, false), 0);
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(config_.enableHook(1, true), 0);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(config_.enableHook(1, false), 0);
    EXPECT_FALSE(config_.isHookEnable());
}

TEST_F(AudioHookConfigTest, OneForbiddenHookForbidsAll) {
    ASSERT_EQ(Init(config_), 0);
    EXPECT_EQ(config_.enableHook(1, true), 0);
    EXPECT_EQ(config_.forceDisableHook(2, true), 0);
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(config_.forceDisableHook(2, false), 0);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(config_.forceDisableHook(1, true), 0);
    EXPECT_FALSE(config_.isHookEnable());
}

TEST_F(AudioHookConfigTest, TableTakesTwentyIdsAndRefusesTheNext) {
    ASSERT_EQ(Init(config_), 0);
    for (unsigned id = 100; id < 120; ++id) {
        EXPECT_EQ(config_.enableHook(id, true), 0);
    }
    const Bytes full = ConfigBytes();
    EXPECT_EQ(full[0], 20);
    EXPECT_EQ(full[8 + 19 * 8], 119);
    EXPECT_EQ(full[8 + 19 * 8 + 4], 1);
    EXPECT_EQ(config_.enableHook(99, true), 4);
    EXPECT_EQ(config_.forceDisableHook(120, true), 4);
    EXPECT_EQ(ConfigBytes(), full);
    EXPECT_EQ(config_.enableHook(119, true), 0);
    EXPECT_EQ(config_.forceDisableHook(100, false), 0);
    EXPECT_EQ(ConfigBytes(), full);
    AudioHookConfigImpl next;
    ASSERT_EQ(Init(next), 0);
    EXPECT_TRUE(next.isHookEnable());
    EXPECT_EQ(next.enableHook(99, true), 4);
}

TEST_F(AudioHookConfigTest, RefusedTwentyFirstIdStillRearmsTheBudgetInMemory) {
    Bytes bytes = Page({20, 0, 0, 0, 1, 0, 0, 0});
    for (std::size_t k = 0; k < 20; ++k) {
        bytes[8 + 8 * k] = static_cast<unsigned char>(k + 1);
        bytes[12 + 8 * k] = 1;
    }
    WriteBytes(configPath_, bytes);
    WriteBytes(countPath_, {1, 0, 0, 0});
    ASSERT_EQ(Init(config_), 0);
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(config_.enableHook(21, true), 4);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(ConfigBytes()[4], 0);
}

TEST_F(AudioHookConfigTest, RefusedEnableDoesNotStopTheCounting) {
    ASSERT_EQ(Init(config_), 0);
    for (unsigned id = 0; id < 20; ++id) {
        EXPECT_EQ(config_.enableHook(id, false), 0);
    }
    EXPECT_EQ(config_.enableHook(20, true), 4);
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes()[0], 1);
}

TEST_F(AudioHookConfigTest, RetryCountTakesEffectAtTheNextChange) {
    ASSERT_EQ(Init(config_), 0);
    config_.setRetryCount(5);
    EXPECT_EQ(ConfigBytes()[4], 0);
    EXPECT_EQ(config_.enableHook(1, true), 0);
    EXPECT_EQ(ConfigBytes()[4], 5);
    config_.setRetryCount(0);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(config_.forceDisableHook(1, false), 0);
    EXPECT_EQ(ConfigBytes()[4], 0);
    EXPECT_FALSE(config_.isHookEnable());
}

TEST_F(AudioHookConfigTest, TooLongATableClearsTheLogicalFileAndSaysSo) {
    OpenConfig config;
    ASSERT_EQ(Init(config), 0);
    for (unsigned id = 0; id < 20; ++id) {
        ASSERT_EQ(config.enableHook(id, true), 0);
    }
    config.Insert(20);
    log_.Clear();
    config.writeToMMap(false);
    EXPECT_THAT(log_.All(), IsEmpty());
    EXPECT_EQ(ConfigBytes()[0], 0);
    config.writeToMMap(true);
    EXPECT_THAT(log_.Errors(), ElementsAre("Can not wirte config to file, id is overflow"));
    const Bytes bytes = ConfigBytes();
    EXPECT_TRUE(std::all_of(bytes.begin(), bytes.begin() + 160, [](auto byte) { return !byte; }));
    // The twentieth record lies behind the cleared bytes.
    EXPECT_EQ(bytes[160], 19);
}

TEST_F(AudioHookConfigTest, SilentWriteLogsNothing) {
    ASSERT_EQ(Init(config_), 0);
    ASSERT_EQ(config_.enableHook(1, true), 0);
    log_.Clear();
    config_.writeToMMap(false);
    EXPECT_THAT(log_.All(), IsEmpty());
}

TEST_F(AudioHookConfigTest, TwentyOneItemsInTheFileMakeInitReturnTwo) {
    WriteBytes(configPath_, Page({21, 0, 0, 0, 2, 0, 0, 0}));
    WriteBytes(countPath_, {3, 0, 0, 0});
    EXPECT_EQ(Init(config_), 2);
    EXPECT_FALSE(config_.isInitSuccess());
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(config_.enableHook(1, true), 3);
    ExpectState(config_, 0, 2);
    EXPECT_THAT(StoreLines(), IsEmpty());
    config_.enterHookFunc();
    EXPECT_EQ(CountBytes()[0], 3);
}

TEST_F(AudioHookConfigTest, InitMayBeTriedAgainAfterAFailure) {
    WriteBytes(configPath_, Page({255, 255, 255, 255}));
    EXPECT_EQ(Init(config_), 2);
    std::filesystem::remove(configPath_);
    EXPECT_EQ(Init(config_), 0);
    EXPECT_EQ(config_.enableHook(1, true), 0);
}

TEST_F(AudioHookConfigTest, SecondInitReturnsZeroWithoutTouchingTheFiles) {
    ASSERT_EQ(Init(config_), 0);
    WriteBytes(countPath_, Page({9}));
    log_.Clear();
    EXPECT_EQ(Init(config_), 0);
    EXPECT_EQ(config_.init(folder_.File("elsewhere").c_str()), 0);
    EXPECT_EQ(CountBytes()[0], 9);
    EXPECT_THAT(log_.All(), IsEmpty());
}

TEST_F(AudioHookConfigTest, MissingFolderMakesInitReturnOne) {
    EXPECT_EQ(config_.init(folder_.File("missing/folder").c_str()), 1);
    EXPECT_FALSE(config_.isInitSuccess());
    EXPECT_EQ(config_.enableHook(1, true), 3);
    EXPECT_EQ(log_.Errors().size(), 2U);
}

TEST_F(AudioHookConfigTest, NullOrEmptyFolderMakesInitReturnOne) {
    EXPECT_EQ(config_.init(nullptr), 1);
    EXPECT_EQ(config_.init(""), 1);
    EXPECT_THAT(log_.All(), IsEmpty());
}

TEST_F(AudioHookConfigTest, FolderInPlaceOfAFileMakesInitReturnOne) {
    std::filesystem::create_directory(countPath_);
    EXPECT_EQ(Init(config_), 1);
    EXPECT_THAT(log_.Errors(), ElementsAre("Open file(" + countPath_ + ") failed with invalid fd"));
    std::filesystem::remove(countPath_);
    std::filesystem::remove(configPath_);
    std::filesystem::create_directory(configPath_);
    EXPECT_EQ(Init(config_), 1);
}

TEST_F(AudioHookConfigTest, PipeInPlaceOfAFileMakesInitReturnOne) {
    ASSERT_EQ(mkfifo(configPath_.c_str(), 0600), 0);
    EXPECT_EQ(Init(config_), 1);
}

TEST_F(AudioHookConfigTest, CountAndBudgetAreReportedAsFoundAndARetryIsSpent) {
    WriteBytes(configPath_, Page({1, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 1, 0}));
    WriteBytes(countPath_, {3, 0, 0, 0});
    EXPECT_EQ(Init(config_), 0);
    ExpectState(config_, 3, 1);
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(ConfigBytes(), Page({1, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 1, 0}));
    EXPECT_EQ(CountBytes(), Page({}));
    EXPECT_THAT(
        StoreLines(),
        ElementsAre("parseConfigList: length: 1, count: 1", "item: 5, 1", "parseCountFile: 3",
                    "Success to wirte config to file: length: 1, count: 0", "item: 5, 1"));
}

TEST_F(AudioHookConfigTest, RetriesLeftKeepTheHooksEnabled) {
    WriteBytes(configPath_, Page({1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 1, 0}));
    WriteBytes(countPath_, {1, 0, 0, 0});
    EXPECT_EQ(Init(config_), 0);
    ExpectState(config_, 1, 2);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(ConfigBytes()[4], 1);
}

TEST_F(AudioHookConfigTest, CountBelowOneSpendsNothing) {
    WriteBytes(configPath_, Page({1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 1, 0}));
    WriteBytes(countPath_, {255, 255, 255, 255});
    EXPECT_EQ(Init(config_), 0);
    ExpectState(config_, -1, 2);
    EXPECT_EQ(ConfigBytes()[4], 2);
    EXPECT_EQ(CountBytes(), Page({}));
}

TEST_F(AudioHookConfigTest, UsedUpGuardForgetsTheItemsInMemoryButNotInTheFile) {
    const Bytes bytes = Page({2, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 1, 0, 0, 0, 6, 0, 0, 0, 1, 1});
    WriteBytes(configPath_, bytes);
    WriteBytes(countPath_, {4, 0, 0, 0});
    EXPECT_EQ(Init(config_), 0);
    ExpectState(config_, 4, 0);
    EXPECT_EQ(ConfigBytes(), bytes);
    EXPECT_FALSE(config_.isHookEnable());
    // Had item 6 been remembered, it would forbid this.
    EXPECT_EQ(config_.enableHook(9, true), 0);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(ConfigBytes()[0], 1);
    EXPECT_EQ(ConfigBytes()[8], 9);
}

TEST_F(AudioHookConfigTest, LaterRecordOfADuplicateIdWins) {
    WriteBytes(configPath_,
               Page({2, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 0, 1, 0, 0, 5, 0, 0, 0, 1, 0}));
    EXPECT_EQ(Init(config_), 0);
    EXPECT_TRUE(config_.isHookEnable());
}

TEST_F(AudioHookConfigTest, FlagBytesOtherThanOneCountAsTrueAndAreWrittenBackAsOne) {
    WriteBytes(configPath_, Page({1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 0x80, 0, 0xff, 0xff}));
    EXPECT_EQ(Init(config_), 0);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(config_.forceDisableHook(5, true), 0);
    EXPECT_EQ(ConfigBytes(), Page({1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 1, 1, 0, 0}));
}

TEST_F(AudioHookConfigTest, TruncatedFilesAreReadAsIfZerosFollowed) {
    WriteBytes(configPath_, {1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0});
    WriteBytes(countPath_, {1});
    EXPECT_EQ(Init(config_), 0);
    ExpectState(config_, 1, 2);
    EXPECT_FALSE(config_.isHookEnable());
    EXPECT_EQ(ConfigBytes(), Page({1, 0, 0, 0, 1, 0, 0, 0, 5}));
}

TEST_F(AudioHookConfigTest, LongerFilesAreCutToOnePage) {
    Bytes bytes = Page({1, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 1, 0});
    bytes.resize(3 * kPage + 17, 0xee);
    WriteBytes(configPath_, bytes);
    EXPECT_EQ(Init(config_), 0);
    EXPECT_TRUE(config_.isHookEnable());
    EXPECT_EQ(ConfigBytes().size(), kPage);
}

TEST_F(AudioHookConfigTest, RandomFilesNeverDoMoreThanFailInit) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        for (const std::string& path : {configPath_, countPath_}) {
            Bytes bytes(random() % 300);
            std::generate(bytes.begin(), bytes.end(),
                          [&] { return static_cast<unsigned char>(random()); });
            if (bytes.size() > 4 && round % 2 == 0) {
                bytes[0] = static_cast<unsigned char>(random() % 24);
                bytes[1] = bytes[2] = bytes[3] = 0;
            }
            WriteBytes(path, bytes);
        }
        AudioHookConfigImpl config;
        const int result = Init(config);
        ASSERT_TRUE(result == 0 || result == 2);
        ASSERT_EQ(config.isInitSuccess(), result == 0);
        config.isHookEnable();
        const int change = config.enableHook(1, true);
        ASSERT_TRUE(result == 2 ? change == 3 : change == 0 || change == 4);
        config.enterHookFunc();
        config.exitHookFunc();
    }
}

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
    ASSERT_EQ(AudioHookConfig::getInstance()->init(folder_.Path().c_str()), 0);
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

TEST_F(AudioHookConfigTest, ChangesScheduleAFlushOfTheConfigFile) {
    const auto child = [&] {
        Init(config_);
        FailSystemCall(SYS_msync);
        log_.Clear();
        const int result = config_.enableHook(1, true);
        const std::vector<std::string> expected{"msync failed, path: " + configPath_ +
                                                ", size: " + std::to_string(kPage)};
        std::_Exit(result == 0 && log_.Errors() == expected ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST_F(AudioHookConfigTest, WhenAllThreadsAreOutTheFileSaysSo) {
    constexpr int kThreads = 2;
    constexpr int kRounds = 50000;
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
            for (int round = 0; round < kRounds; ++round) {
                config_.enterHookFunc();
                meet((3 * round + 1) * kThreads);
                // One leaves a little later than the other, differently in each round.
                for (delay = k * (round % 32); delay > 0; --delay) {
                }
                config_.exitHookFunc();
                meet((3 * round + 2) * kThreads);
                wrong += count.load() == 0 ? 0 : 1;
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
