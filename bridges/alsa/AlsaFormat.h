#pragma once

#include <alsa/asoundlib.h>

#include <span>
#include <string_view>

#include "bridges/core/NativeFormat.h"

namespace tq::bridges {

/// [any thread] How ALSA's samples lie in memory; kNotPcm for coded sound.
[[nodiscard]] NativeSample alsaSample(snd_pcm_format_t format) noexcept;

/// [any thread] What channels at those positions are meant for (enum snd_pcm_chmap_position).
[[nodiscard]] Speakers alsaSpeakers(std::span<const unsigned> positions) noexcept;
/// [any thread] The same where a device does not say it: ALSA's own order.
[[nodiscard]] Speakers usualAlsaSpeakers(unsigned channels) noexcept;

/// [any thread] Whether a device is opened for coded sound that looks like 16-bit samples: its
/// channel status says so ("iec958:AES0=0x6", "hdmi:CARD=0,AES0=6").
[[nodiscard]] bool isPassThrough(std::string_view device) noexcept;

}  // namespace tq::bridges
