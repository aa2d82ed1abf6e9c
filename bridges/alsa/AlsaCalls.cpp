// ALSA: streams are pcms, from the moment their format is set.

#include <alsa/asoundlib.h>

#include "bridges/alsa/AlsaFormat.h"
#include "bridges/core/CallDepth.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Memory = NativeStream::Memory;

/// What is asked of the program's own copy of the library.
struct AlsaLibrary {
    decltype(&snd_pcm_stream) stream;
    decltype(&snd_pcm_name) name;
    decltype(&snd_pcm_hw_params_get_format) format;
    decltype(&snd_pcm_hw_params_get_channels) channels;
    decltype(&snd_pcm_hw_params_get_rate) rate;

    explicit AlsaLibrary(const void* known)
        : stream(functionBeside<decltype(snd_pcm_stream)>(known, "snd_pcm_stream")),
          name(functionBeside<decltype(snd_pcm_name)>(known, "snd_pcm_name")),
          format(functionBeside<decltype(snd_pcm_hw_params_get_format)>(
              known, "snd_pcm_hw_params_get_format")),
          channels(functionBeside<decltype(snd_pcm_hw_params_get_channels)>(
              known, "snd_pcm_hw_params_get_channels")),
          rate(functionBeside<decltype(snd_pcm_hw_params_get_rate)>(
              known, "snd_pcm_hw_params_get_rate")) {}

    [[nodiscard]] bool isComplete() const {
        return stream != nullptr && name != nullptr && format != nullptr && channels != nullptr &&
               rate != nullptr;
    }
    /// Of the copy that the first call went to.
    static const AlsaLibrary& of(const void* known) {
        static const AlsaLibrary library(known);
        return library;
    }
};

void beginStream(const void* known, snd_pcm_t* pcm, const NativeFormat& format) {
    const AlsaLibrary& alsa = AlsaLibrary::of(known);
    if (alsa.isComplete() && alsa.stream(pcm) == SND_PCM_STREAM_PLAYBACK) {
        const char* const name = alsa.name(pcm);
        NativeStream::open(pcm, format, "alsa", name == nullptr ? "" : name);
    }
}

/// The format of a configuration that the library has taken.
NativeFormat formatOf(const AlsaLibrary& alsa, const snd_pcm_hw_params_t* params) {
    snd_pcm_format_t format{};
    unsigned channels = 0;
    unsigned rate = 0;
    int direction = 0;
    if (alsa.format(params, &format) < 0 || alsa.channels(params, &channels) < 0 ||
        alsa.rate(params, &rate, &direction) < 0) {
        return {};
    }
    return {alsaSample(format), channels, static_cast<double>(rate)};
}

template <class Original>
const void* addressOf(Original* original) {
    return reinterpret_cast<const void*>(original);
}

/// A function that writes interleaved frames.
template <auto* kFunction>
constexpr auto hookOfWrite() {
    return tqhook::hook<kFunction>(
        [](auto* original, snd_pcm_t* pcm, const void* samples, snd_pcm_uframes_t frames) {
            const CallDepth depth;
            const NativeStream::Use stream(depth.isOutermost() ? pcm : nullptr);
            if (!stream) {
                return original(pcm, samples, frames);
            }
            const void* const passed = stream->prepare(samples, frames, Memory::kConstant);
            const snd_pcm_sframes_t taken = original(pcm, passed, frames);
            stream->accepted(taken > 0 ? static_cast<std::size_t>(taken) : 0);
            return taken;
        });
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&snd_pcm_hw_params>(
        [](auto* original, snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
            const CallDepth depth;
            const int result = original(pcm, params);
            if (result >= 0 && depth.isOutermost()) {
                const void* const known = addressOf(original);
                if (const AlsaLibrary& alsa = AlsaLibrary::of(known); alsa.isComplete()) {
                    beginStream(known, pcm, formatOf(alsa, params));
                }
            }
            return result;
        }),
    tqhook::hook<&snd_pcm_set_params>([](auto* original, snd_pcm_t* pcm, snd_pcm_format_t format,
                                         snd_pcm_access_t access, unsigned channels, unsigned rate,
                                         int softResample, unsigned latency) {
        const CallDepth depth;
        const int result = original(pcm, format, access, channels, rate, softResample, latency);
        if (result >= 0 && depth.isOutermost()) {
            beginStream(addressOf(original), pcm,
                        {alsaSample(format), channels, static_cast<double>(rate)});
        }
        return result;
    }),
    hookOfWrite<&snd_pcm_writei>(),
    hookOfWrite<&snd_pcm_mmap_writei>(),
    tqhook::hook<&snd_pcm_hw_free>([](auto* original, snd_pcm_t* pcm) {
        NativeStream::close(pcm);
        return original(pcm);
    }),
    tqhook::hook<&snd_pcm_close>([](auto* original, snd_pcm_t* pcm) {
        // Before the handle can come back.
        NativeStream::close(pcm);
        return original(pcm);
    }),
};

}  // namespace

NativeApi alsaApi() {
    static const auto rows = kHooks.rows();
    return {"alsa", rows};
}

}  // namespace tq::bridges
