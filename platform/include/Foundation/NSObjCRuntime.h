#pragma once

#include <cstdint>
#include <string>
#include <typeinfo>

/// Marks what libtqplatform offers to programs; everything else in it is hidden.
#define TQ_PLATFORM_EXPORT __attribute__((visibility("default")))

using BOOL = bool;
inline constexpr BOOL YES = true;
inline constexpr BOOL NO = false;

using NSInteger = std::intptr_t;
using NSUInteger = std::uintptr_t;

/// [host thread] The readable name of a class, as `NSStringFromClass(typeid(object))`.
[[nodiscard]] TQ_PLATFORM_EXPORT std::string NSStringFromClass(const std::type_info& type);

/// [host thread] Writes one line to the system log, printf-style with NSString's own rules for %@
/// and %p.
TQ_PLATFORM_EXPORT void NSLog(const char* format, ...);
