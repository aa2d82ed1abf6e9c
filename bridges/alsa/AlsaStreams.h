#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <optional>

#include "bridges/alsa/AlsaLibrary.h"
#include "bridges/core/NativeFormat.h"

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
/// What has been written to it and never started is gone when it is prepared anew.
[[nodiscard]] bool isUnstarted(const AlsaLibrary& alsa, snd_pcm_t* pcm);

}  // namespace tq::bridges
