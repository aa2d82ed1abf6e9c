#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "AudioHookConfigFixture.h"
#include "audio_hook_config.h"

namespace korva_audio_utils {
namespace {

// What init makes of files that an earlier run, or anybody else, left.

using testing::ElementsAre;

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

}  // namespace
}  // namespace korva_audio_utils
