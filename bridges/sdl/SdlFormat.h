#pragma once

#include <SDL_audio.h>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// [any thread] How SDL's samples lie in memory; kNotPcm for a format that SDL does not have.
[[nodiscard]] NativeSample sdlSample(SDL_AudioFormat format) noexcept;

/// [any thread] What SDL's channels are meant for; 1 to 8 of them.
[[nodiscard]] Speakers sdlSpeakers(unsigned channels) noexcept;

}  // namespace tq::bridges
