#include "audio_hook_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "AudioHookConfigFixture.h"
#include "FailSystemCall.h"

namespace korva_audio_utils {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Opens the table to the test, so that it can hold more than the public operations let in.
class OpenConfig : public AudioHookConfigImpl {
  public:
    void Insert(unsigned id) { items_[id] = ConfigItem{id, true, false}; }
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
    EXPECT_EQ(config_.init((folder_.path().string() + "/").c_str()), 0);
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
    EXPECT_EQ(config_.init(folder_.file("elsewhere").c_str()), 0);
    EXPECT_EQ(CountBytes()[0], 9);
    EXPECT_THAT(log_.All(), IsEmpty());
}

TEST_F(AudioHookConfigTest, MissingFolderMakesInitReturnOne) {
    EXPECT_EQ(config_.init(folder_.file("missing/folder").c_str()), 1);
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

}  // namespace
}  // namespace korva_audio_utils
