#pragma once

#include <pulse/sample.h>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// [any thread] How PulseAudio's samples lie in memory; kNotPcm for coded sound.
[[nodiscard]] NativeSample pulseSample(pa_sample_format_t format) noexcept;

}  // namespace tq::bridges
