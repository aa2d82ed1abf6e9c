#pragma once

#include <Foundation/Foundation.h>

/// The application went out of sight. No user info.
inline constexpr const char* UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";
