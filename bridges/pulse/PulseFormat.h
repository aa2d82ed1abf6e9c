#pragma once

#include <pulse/channelmap.h>
#include <pulse/sample.h>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// [any thread] How PulseAudio's samples lie in memory; kNotPcm for coded sound.
[[nodiscard]] NativeSample pulseSample(pa_sample_format_t format) noexcept;

/// [any thread] What a stream's channels are meant for.
[[nodiscard]] Speakers pulseSpeakers(const pa_channel_map& map) noexcept;

}  // namespace tq::bridges
