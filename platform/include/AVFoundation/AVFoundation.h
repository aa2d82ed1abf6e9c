#pragma once

#include <Foundation/Foundation.h>

// Notices of the audio session: names, keys of their user info, and the integers under the keys.
// What learns of an interruption or a new route posts them to NSNotificationCenter's
// defaultCenter().

/// An interruption began or ended. User info: AVAudioSessionInterruptionTypeKey; when it began
/// AVAudioSessionInterruptionReasonKey, when it ended AVAudioSessionInterruptionOptionKey.
inline constexpr const char* AVAudioSessionInterruptionNotification =
    "AVAudioSessionInterruptionNotification";
inline constexpr const char* AVAudioSessionInterruptionTypeKey =
    "AVAudioSessionInterruptionTypeKey";
inline constexpr const char* AVAudioSessionInterruptionOptionKey =
    "AVAudioSessionInterruptionOptionKey";
inline constexpr const char* AVAudioSessionInterruptionReasonKey =
    "AVAudioSessionInterruptionReasonKey";

/// The hardware changed; its rate may be another. May arrive on any thread. User info:
/// AVAudioSessionRouteChangeReasonKey, AVAudioSessionRouteChangePreviousRouteKey.
inline constexpr const char* AVAudioSessionRouteChangeNotification =
    "AVAudioSessionRouteChangeNotification";
inline constexpr const char* AVAudioSessionRouteChangeReasonKey =
    "AVAudioSessionRouteChangeReasonKey";
inline constexpr const char* AVAudioSessionRouteChangePreviousRouteKey =
    "AVAudioSessionRouteChangePreviousRouteKey";

enum AVAudioSessionInterruptionType : NSInteger {
    AVAudioSessionInterruptionTypeEnded = 0,
    AVAudioSessionInterruptionTypeBegan = 1,
};

enum AVAudioSessionInterruptionOptions : NSInteger {
    AVAudioSessionInterruptionOptionShouldResume = 1,
};

enum AVAudioSessionInterruptionReason : NSInteger {
    AVAudioSessionInterruptionReasonDefault = 0,
    AVAudioSessionInterruptionReasonAppWasSuspended = 1,
    AVAudioSessionInterruptionReasonBuiltInMicMuted = 2,
    AVAudioSessionInterruptionReasonRouteDisconnected = 4,
};

enum AVAudioSessionRouteChangeReason : NSInteger {
    AVAudioSessionRouteChangeReasonUnknown = 0,
    AVAudioSessionRouteChangeReasonNewDeviceAvailable = 1,
    AVAudioSessionRouteChangeReasonOldDeviceUnavailable = 2,
    AVAudioSessionRouteChangeReasonCategoryChange = 3,
    AVAudioSessionRouteChangeReasonOverride = 4,
    AVAudioSessionRouteChangeReasonWakeFromSleep = 6,
    AVAudioSessionRouteChangeReasonNoSuitableRouteForCategory = 7,
    AVAudioSessionRouteChangeReasonRouteConfigurationChange = 8,
};
