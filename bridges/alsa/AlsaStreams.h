#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <optional>

#include "bridges/alsa/AlsaLibrary.h"
#include "bridges/core/NativeFormat.h"
#include "bridges/core/NativeStream.h"

namespace tq::bridges {

// [host thread] Questions to the program's copy of libasound leave errno as it was.

/// The format of a configuration that the library has taken.
[[nodiscard]] NativeFormat alsaFormat(const AlsaLibrary& alsa, const snd_pcm_hw_params_t* params);
/// A pcm that plays is a stream from here on.
void beginStream(const AlsaLibrary& alsa, snd_pcm_t* pcm, const NativeFormat& format);
/// The program says itself what the channels are for.
void followMap(const AlsaLibrary& alsa, snd_pcm_t* pcm, const snd_pcm_chmap_t& map);

/// Frames that the device has not played, before a call that throws them away; empty where nobody
/// says it, and where the pcm is not served.
[[nodiscard]] std::optional<std::size_t> unheardBefore(const AlsaLibrary& alsa, snd_pcm_t* pcm);
/// [any thread] [real-time safe] Whether the device keeps what is written until it is started.
[[nodiscard]] bool isUnstarted(const AlsaLibrary& alsa, snd_pcm_t* pcm);
/// [any thread] [real-time safe] The longest part to hand over at once. To a device that is not
/// started it is what fills the buffer: that call does not wait, and tells whether it has started.
[[nodiscard]] std::size_t longestPart(const AlsaLibrary& alsa, snd_pcm_t* pcm,
                                      const NativeStream& stream);

}  // namespace tq::bridges
