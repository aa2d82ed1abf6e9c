#pragma once

#include <alsa/asoundlib.h>

#include "bridges/core/LibraryOf.h"

namespace tq::bridges {

/// What is asked of the program's own copy of libasound.
struct AlsaLibrary {
    decltype(&snd_pcm_stream) stream;
    decltype(&snd_pcm_name) name;
    decltype(&snd_pcm_state) state;
    decltype(&snd_pcm_hw_params_get_format) format;
    decltype(&snd_pcm_hw_params_get_channels) channels;
    decltype(&snd_pcm_hw_params_get_rate) rate;
    // What follows may be missing.
    decltype(&snd_pcm_get_params) sizes;
    decltype(&snd_pcm_avail_update) room;
    decltype(&snd_pcm_delay) delay;
    decltype(&snd_pcm_get_chmap) map;
    decltype(&snd_strerror) errorText;

    explicit AlsaLibrary(const void* known)
        : stream(functionBeside<decltype(snd_pcm_stream)>(known, "snd_pcm_stream")),
          name(functionBeside<decltype(snd_pcm_name)>(known, "snd_pcm_name")),
          state(functionBeside<decltype(snd_pcm_state)>(known, "snd_pcm_state")),
          format(functionBeside<decltype(snd_pcm_hw_params_get_format)>(
              known, "snd_pcm_hw_params_get_format")),
          channels(functionBeside<decltype(snd_pcm_hw_params_get_channels)>(
              known, "snd_pcm_hw_params_get_channels")),
          rate(functionBeside<decltype(snd_pcm_hw_params_get_rate)>(known,
                                                                    "snd_pcm_hw_params_get_rate")),
          sizes(functionBeside<decltype(snd_pcm_get_params)>(known, "snd_pcm_get_params")),
          room(functionBeside<decltype(snd_pcm_avail_update)>(known, "snd_pcm_avail_update")),
          delay(functionBeside<decltype(snd_pcm_delay)>(known, "snd_pcm_delay")),
          map(functionBeside<decltype(snd_pcm_get_chmap)>(known, "snd_pcm_get_chmap")),
          errorText(functionBeside<decltype(snd_strerror)>(known, "snd_strerror")) {}

    [[nodiscard]] bool isComplete() const {
        return stream != nullptr && name != nullptr && state != nullptr && format != nullptr &&
               channels != nullptr && rate != nullptr;
    }
    /// Of the copy that the first call went to. It is the only one: calls of another copy are not
    /// redirected, and a copy whose calls are is never unloaded.
    static const AlsaLibrary& of(const void* known) {
        static const AlsaLibrary library(known);
        return library;
    }
};

}  // namespace tq::bridges
