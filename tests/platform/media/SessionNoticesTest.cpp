#include <AVFoundation/AVFoundation.h>
#include <TQPlatform/Application.h>
#include <UIKit/UIKit.h>
#include <gtest/gtest.h>

static_assert(AVAudioSessionInterruptionTypeBegan == 1);
static_assert(AVAudioSessionInterruptionTypeEnded == 0);
static_assert(AVAudioSessionInterruptionOptionShouldResume == 1);
static_assert(AVAudioSessionInterruptionReasonDefault == 0);
static_assert(AVAudioSessionInterruptionReasonAppWasSuspended == 1);
static_assert(AVAudioSessionInterruptionReasonBuiltInMicMuted == 2);
static_assert(AVAudioSessionInterruptionReasonRouteDisconnected == 4);
static_assert(AVAudioSessionRouteChangeReasonUnknown == 0);
static_assert(AVAudioSessionRouteChangeReasonNewDeviceAvailable == 1);
static_assert(AVAudioSessionRouteChangeReasonOldDeviceUnavailable == 2);
static_assert(AVAudioSessionRouteChangeReasonCategoryChange == 3);
static_assert(AVAudioSessionRouteChangeReasonOverride == 4);
static_assert(AVAudioSessionRouteChangeReasonWakeFromSleep == 6);
static_assert(AVAudioSessionRouteChangeReasonNoSuitableRouteForCategory == 7);
static_assert(AVAudioSessionRouteChangeReasonRouteConfigurationChange == 8);

TEST(SessionNotices, NamesAndKeysAreTheirIdentifiers) {
    EXPECT_STREQ(AVAudioSessionInterruptionNotification, "AVAudioSessionInterruptionNotification");
    EXPECT_STREQ(AVAudioSessionInterruptionTypeKey, "AVAudioSessionInterruptionTypeKey");
    EXPECT_STREQ(AVAudioSessionInterruptionOptionKey, "AVAudioSessionInterruptionOptionKey");
    EXPECT_STREQ(AVAudioSessionInterruptionReasonKey, "AVAudioSessionInterruptionReasonKey");
    EXPECT_STREQ(AVAudioSessionRouteChangeNotification, "AVAudioSessionRouteChangeNotification");
    EXPECT_STREQ(AVAudioSessionRouteChangeReasonKey, "AVAudioSessionRouteChangeReasonKey");
    EXPECT_STREQ(AVAudioSessionRouteChangePreviousRouteKey,
                 "AVAudioSessionRouteChangePreviousRouteKey");
    EXPECT_STREQ(UIApplicationDidEnterBackgroundNotification,
                 "UIApplicationDidEnterBackgroundNotification");
}

TEST(SessionNotices, TravelThroughTheNotificationCenter) {
    auto& center = NSNotificationCenter::defaultCenter();
    int observer = 0;
    long type = -1;
    center.addObserver(
        &observer,
        [&type](const NSNotification& notice) {
            type = notice.integerForKey(AVAudioSessionInterruptionTypeKey, -1);
        },
        AVAudioSessionInterruptionNotification, nullptr);
    center.postNotificationName(
        AVAudioSessionInterruptionNotification, nullptr,
        {{AVAudioSessionInterruptionTypeKey, AVAudioSessionInterruptionTypeBegan}});
    EXPECT_EQ(type, AVAudioSessionInterruptionTypeBegan);
    center.removeObserver(&observer);
}

TEST(SessionNotices, AProgramSaysThatItWentToTheBackground) {
    int told = 0;
    NSNotificationCenter::defaultCenter().addObserver(
        &told, [&](const NSNotification& notice) { told += notice.userInfo.empty() ? 1 : 100; },
        UIApplicationDidEnterBackgroundNotification, nullptr);
    TQApplicationEnteredBackground();
    EXPECT_EQ(told, 1);
    NSNotificationCenter::defaultCenter().removeObserver(&told);
}
