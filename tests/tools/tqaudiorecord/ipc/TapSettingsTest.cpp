#include "ipc/TapSettings.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace tqrecorder;

TEST(TapSettings, TravelAsText) {
    TapSettings settings;
    settings.task = TapSettings::Task::kGuardArm;
    settings.socket = "name";
    settings.recorder = 4711;
    settings.soundBytes = 123456789012;
    settings.armGuard = true;
    settings.duckDecibels = -7.5F;
    const auto read = settingsFromText(toText(settings));
    ASSERT_TRUE(read);
    EXPECT_EQ(toText(*read), toText(settings));
    EXPECT_EQ(read->soundBytes, settings.soundBytes);
    EXPECT_EQ(read->duckDecibels, -7.5F);
}

TEST(TapSettings, PatternsTravelWhateverIsInThem) {
    TapSettings settings;
    settings.socket = "name";
    settings.choice = {{"*game music*", "\x01\xff \t\n"}, {"%20"}};
    const auto read = settingsFromText(toText(settings));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->choice.only, settings.choice.only);
    EXPECT_EQ(read->choice.without, settings.choice.without);
    const std::string text = toText(settings);
    EXPECT_FALSE(settingsFromText(text.substr(0, text.rfind(' '))));
    EXPECT_FALSE(settingsFromText(text.substr(0, text.size() - 1)));
    EXPECT_FALSE(settingsFromText(text.substr(0, text.size() - 1) + "g"));
}

TEST(TapSettings, ThatMakeNoSenseAreNone) {
    const std::string good = toText(TapSettings{.socket = "name"});
    EXPECT_TRUE(settingsFromText(good));
    EXPECT_FALSE(settingsFromText(""));
    EXPECT_FALSE(settingsFromText("tq2 name 9 1"));
    EXPECT_FALSE(settingsFromText(good.substr(0, good.size() / 2)));
    EXPECT_FALSE(settingsFromText("tq1" + good.substr(3)));
}

}  // namespace
