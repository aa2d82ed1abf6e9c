#pragma once

#include <SDL_audio.h>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// [any thread] How SDL's samples lie in memory; kNotPcm for a format that SDL does not have.
[[nodiscard]] NativeSample sdlSample(SDL_AudioFormat format) noexcept;

}  // namespace tq::bridges
