#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <string>

/// A status as people look it up: its four characters between single quotes when all of them are
/// printable, else decimal. Empty for 0.
[[nodiscard]] std::string CheckError(OSStatus status);
