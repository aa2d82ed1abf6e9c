#pragma once

#include <alsa/asoundlib.h>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// [any thread] How ALSA's samples lie in memory; kNotPcm for coded sound.
[[nodiscard]] NativeSample alsaSample(snd_pcm_format_t format) noexcept;

}  // namespace tq::bridges
