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

TEST(TapSettings, ThatMakeNoSenseAreNone) {
    const std::string good = toText(TapSettings{.socket = "name"});
    EXPECT_TRUE(settingsFromText(good));
    EXPECT_FALSE(settingsFromText(""));
    EXPECT_FALSE(settingsFromText("tq1 name 9 1"));
    EXPECT_FALSE(settingsFromText(good.substr(0, good.size() / 2)));
    EXPECT_FALSE(settingsFromText("tq2" + good.substr(3)));
}

}  // namespace
