// ALSA: streams are pcms, from the moment their format is set.

#include <alsa/asoundlib.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <span>

#include "bridges/alsa/AlsaAreas.h"
#include "bridges/alsa/AlsaFormat.h"
#include "bridges/core/CallDepth.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "bridges/core/Planar.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Memory = NativeStream::Memory;

/// Of what is served.
constexpr std::size_t kMostChannels = 8;

/// What is asked of the program's own copy of the library.
struct AlsaLibrary {
    decltype(&snd_pcm_stream) stream;
    decltype(&snd_pcm_name) name;
    decltype(&snd_pcm_hw_params_get_format) format;
    decltype(&snd_pcm_hw_params_get_channels) channels;
    decltype(&snd_pcm_hw_params_get_rate) rate;
    decltype(&snd_pcm_get_chmap) map;  ///< may be missing

    explicit AlsaLibrary(const void* known)
        : stream(functionBeside<decltype(snd_pcm_stream)>(known, "snd_pcm_stream")),
          name(functionBeside<decltype(snd_pcm_name)>(known, "snd_pcm_name")),
          format(functionBeside<decltype(snd_pcm_hw_params_get_format)>(
              known, "snd_pcm_hw_params_get_format")),
          channels(functionBeside<decltype(snd_pcm_hw_params_get_channels)>(
              known, "snd_pcm_hw_params_get_channels")),
          rate(functionBeside<decltype(snd_pcm_hw_params_get_rate)>(known,
                                                                    "snd_pcm_hw_params_get_rate")),
          map(functionBeside<decltype(snd_pcm_get_chmap)>(known, "snd_pcm_get_chmap")) {}

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

/// What the device says of its channels, or ALSA's own order.
Speakers speakersOf(const AlsaLibrary& alsa, snd_pcm_t* pcm, unsigned channels) {
    if (channels <= 2) {
        return {};
    }
    const int before = errno;
    const std::unique_ptr<snd_pcm_chmap_t, decltype(&std::free)> map(
        alsa.map == nullptr ? nullptr : alsa.map(pcm), &std::free);
    errno = before;
    if (map == nullptr || map->channels != channels) {
        return usualAlsaSpeakers(channels);
    }
    const Speakers said = alsaSpeakers({map->pos, channels});
    return said == Speakers{} ? usualAlsaSpeakers(channels) : said;
}

void beginStream(const AlsaLibrary& alsa, snd_pcm_t* pcm, const NativeFormat& format) {
    if (alsa.isComplete() && alsa.stream(pcm) == SND_PCM_STREAM_PLAYBACK) {
        const char* const name = alsa.name(pcm);
        NativeFormat known = format;
        if (name != nullptr && isPassThrough(name)) {
            known.sample = NativeSample::kNotPcm;
        }
        known.speakers = speakersOf(alsa, pcm, format.channels);
        NativeStream::open(pcm, known, "alsa", name == nullptr ? "" : name);
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

/// A function that writes one plane a channel.
template <auto* kFunction>
constexpr auto hookOfPlanes() {
    return tqhook::hook<kFunction>(
        [](auto* original, snd_pcm_t* pcm, void** planes, snd_pcm_uframes_t frames) {
            const CallDepth depth;
            const NativeStream::Use stream(depth.isOutermost() ? pcm : nullptr);
            std::byte* const room = stream && planes != nullptr ? stream->room(frames) : nullptr;
            if (room == nullptr) {
                return original(pcm, planes, frames);
            }
            const unsigned channels = stream->format().channels;
            const unsigned bytes = bytesPerSample(stream->format().sample);
            interleave({const_cast<const void* const*>(planes), channels}, bytes, frames, room);
            const void* const passed = stream->prepare(room, frames, Memory::kConstant);
            std::array<void*, kMostChannels> own{};
            if (passed != room) {
                for (unsigned channel = 0; channel < channels; ++channel) {
                    own[channel] = room + channel * frames * bytes;
                }
                deinterleave(passed, bytes, frames, {own.data(), channels});
                planes = own.data();
            }
            const snd_pcm_sframes_t taken = original(pcm, planes, frames);
            stream->accepted(taken > 0 ? static_cast<std::size_t>(taken) : 0);
            return taken;
        });
}

/// A function that has done what it says when its result is not negative.
template <auto* kFunction, class Then>
constexpr auto hookOfControl(Then /*then*/) {
    return tqhook::hook<kFunction>([](auto* original, snd_pcm_t* pcm, auto... arguments) {
        const CallDepth depth;
        const auto result = original(pcm, arguments...);
        const NativeStream::Use stream(depth.isOutermost() && result >= 0 ? pcm : nullptr);
        if (stream) {
            Then{}(*stream.operator->(), result, arguments...);
        }
        return result;
    });
}

snd_pcm_sframes_t commit(decltype(&snd_pcm_mmap_commit) original, NativeStream& stream,
                         snd_pcm_t* pcm, snd_pcm_uframes_t offset, snd_pcm_uframes_t frames) {
    const AlsaPiece piece{static_cast<const snd_pcm_channel_area_t*>(stream.kept()),
                          stream.format().channels, bytesPerSample(stream.format().sample), offset,
                          frames};
    std::byte* const room = isReachable(piece) ? stream.room(frames) : nullptr;
    if (room == nullptr) {
        return original(pcm, offset, frames);
    }
    readPiece(piece, room);
    const void* const passed = stream.prepare(room, frames, Memory::kConstant);
    if (passed != room) {
        writePiece(piece, passed, 0);
    }
    const snd_pcm_sframes_t result = original(pcm, offset, frames);
    const std::size_t taken = result > 0 ? static_cast<std::size_t>(result) : 0;
    if (passed != room && taken < frames) {
        // The program finds the rest as it left it, to commit it again.
        writePiece(piece, room, taken);
    }
    stream.accepted(taken);
    return result;
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&snd_pcm_hw_params>(
        [](auto* original, snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
            const CallDepth depth;
            const int result = original(pcm, params);
            if (result >= 0 && depth.isOutermost()) {
                if (const auto& alsa = libraryOf<AlsaLibrary>(original); alsa.isComplete()) {
                    beginStream(alsa, pcm, formatOf(alsa, params));
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
            beginStream(libraryOf<AlsaLibrary>(original), pcm,
                        {alsaSample(format), channels, static_cast<double>(rate)});
        }
        return result;
    }),
    hookOfWrite<&snd_pcm_writei>(),
    hookOfWrite<&snd_pcm_mmap_writei>(),
    hookOfPlanes<&snd_pcm_writen>(),
    hookOfPlanes<&snd_pcm_mmap_writen>(),
    tqhook::hook<&snd_pcm_mmap_begin>([](auto* original, snd_pcm_t* pcm,
                                         const snd_pcm_channel_area_t** areas,
                                         snd_pcm_uframes_t* offset, snd_pcm_uframes_t* frames) {
        const CallDepth depth;
        const int result = original(pcm, areas, offset, frames);
        const NativeStream::Use stream(depth.isOutermost() && result >= 0 ? pcm : nullptr);
        if (stream) {
            stream->keep(*areas);
        }
        return result;
    }),
    tqhook::hook<&snd_pcm_mmap_commit>(
        [](auto* original, snd_pcm_t* pcm, snd_pcm_uframes_t offset, snd_pcm_uframes_t frames) {
            const CallDepth depth;
            const NativeStream::Use stream(depth.isOutermost() ? pcm : nullptr);
            return stream ? commit(original, *stream.operator->(), pcm, offset, frames)
                          : original(pcm, offset, frames);
        }),
    hookOfControl<&snd_pcm_rewind>([](NativeStream& stream, snd_pcm_sframes_t result, auto...) {
        stream.takenBack(static_cast<std::size_t>(result));
    }),
    hookOfControl<&snd_pcm_pause>(
        [](NativeStream& stream, int, int isPaused) { stream.frozen(isPaused != 0); }),
    hookOfControl<&snd_pcm_resume>([](NativeStream& stream, int) { stream.frozen(false); }),
    hookOfControl<&snd_pcm_reset>([](NativeStream& stream, int) { stream.flushed(); }),
    hookOfControl<&snd_pcm_drop>([](NativeStream& stream, int) {
        stream.flushed();
        stream.frozen(false);
    }),
    hookOfControl<&snd_pcm_prepare>([](NativeStream& stream, int) { stream.frozen(false); }),
    tqhook::hook<&snd_pcm_drain>([](auto* original, snd_pcm_t* pcm) {
        const CallDepth depth;
        if (const NativeStream::Use stream(depth.isOutermost() ? pcm : nullptr); stream) {
            // Before it waits. ALSA ends a pause to play out what is there.
            stream->frozen(false);
            stream->drained();
        }
        return original(pcm);
    }),
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
