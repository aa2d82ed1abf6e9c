#pragma once

#include <string>
#include <vector>

#include "NSObjCRuntime.h"

enum NSSearchPathDirectory : NSUInteger { NSCachesDirectory = 13 };
enum NSSearchPathDomainMask : NSUInteger { NSUserDomainMask = 1 };

/// [host thread] The caches folder of this program: $XDG_CACHE_HOME (or ~/.cache) plus the
/// program's own name, so that two hosts never share a folder. Empty for a user without a home;
/// nothing is created.
[[nodiscard]] TQ_PLATFORM_EXPORT std::vector<std::string> NSSearchPathForDirectoriesInDomains(
    NSSearchPathDirectory directory, NSSearchPathDomainMask domainMask, BOOL expandTilde);

class TQ_PLATFORM_EXPORT NSFileManager {
  public:
    /// [any thread]
    static NSFileManager& defaultManager();
    /// [host thread] `isDirectory` may be null.
    [[nodiscard]] BOOL fileExistsAtPath(const std::string& path, BOOL* isDirectory) const;
    /// [host thread] With `intermediates`, missing parents are made and an existing directory is a
    /// success.
    BOOL createDirectoryAtPath(const std::string& path, BOOL intermediates) const;
};
