#pragma once

#include <CoreAudio/CoreAudioTypes.h>

namespace tqplatform {

/// noErr or the error: the constants of both have types of their own, which `?:` does not mix.
[[nodiscard]] constexpr OSStatus okOr(bool ok, OSStatus error) noexcept {
    return ok ? OSStatus{noErr} : error;
}

}  // namespace tqplatform
