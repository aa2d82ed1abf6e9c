// ALSA: streams are pcms, from the moment their format is set.

#include <alsa/asoundlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <span>

#include "bridges/alsa/AlsaAreas.h"
#include "bridges/alsa/AlsaFormat.h"
#include "bridges/alsa/AlsaLibrary.h"
#include "bridges/alsa/AlsaLinks.h"
#include "bridges/alsa/AlsaStreams.h"
#include "bridges/core/CallDepth.h"
#include "bridges/core/GuardScope.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "bridges/core/Planar.h"
#include "bridges/core/WithoutThrowing.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Memory = NativeStream::Memory;

/// Of what is served.
constexpr std::size_t kMostChannels = 8;

/// Hands `frames` over in parts of most(); `part` answers how many of its own were taken. In parts
/// of the device's whole buffer the answer is what it would be for all of it, also where calls do
/// not block.
template <class Most, class Part>
snd_pcm_sframes_t inParts(std::size_t frames, Most most, Part part) {
    std::size_t done = 0;
    while (true) {
        const std::size_t count = std::min(frames - done, most());
        const snd_pcm_sframes_t taken = part(done, count);
        if (taken < 0 && done == 0) {
            return taken;
        }
        done += taken > 0 ? static_cast<std::size_t>(taken) : 0;
        if (taken < static_cast<snd_pcm_sframes_t>(count) || done >= frames) {
            return static_cast<snd_pcm_sframes_t>(done);
        }
    }
}

/// What becomes of a pcm and of all that the program has linked with it.
template <class Work>
void withLinked(const void* pcm, Work work) {
    AlsaLinks::shared().forAll(pcm, [&](const void* each) {
        if (const NativeStream::Use stream(each); stream) {
            work(*stream.operator->());
        }
    });
}

/// The native call has taken `taken` frames, or refused them. They are not heard before the device
/// is started, which the write may have done, with all that are linked.
void accepted(const AlsaLibrary& alsa, snd_pcm_t* pcm, NativeStream& stream,
              snd_pcm_sframes_t taken) {
    const bool waits = isUnstarted(alsa, pcm);
    if (!waits && stream.unstarted() != 0) {
        withLinked(pcm, [](NativeStream& each) { each.started(); });
    }
    stream.waitsFor(waits ? NativeStream::Start::kToCome : NativeStream::Start::kMade);
    stream.accepted(taken > 0 ? static_cast<std::size_t>(taken) : 0);
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
            const auto& alsa = libraryOf<AlsaLibrary>(original);
            const auto most = [&] { return longestPart(alsa, pcm, *stream.operator->()); };
            const unsigned bytes = stream->format().bytesPerFrame();
            return inParts(frames, most, [&](std::size_t first, std::size_t count) {
                const auto* const from = static_cast<const std::byte*>(samples) + first * bytes;
                const void* const passed = stream->prepare(from, count, Memory::kConstant);
                const snd_pcm_sframes_t taken = original(pcm, passed, count);
                accepted(alsa, pcm, *stream.operator->(), taken);
                return taken;
            });
        });
}

/// The frames from `first` on of one plane a channel; a null plane is silence.
template <class Original>
snd_pcm_sframes_t writePlanes(Original* original, NativeStream& stream, snd_pcm_t* pcm,
                              void* const* planes, std::size_t first, std::size_t frames) {
    const unsigned channels = stream.format().channels;
    const unsigned bytes = bytesPerSample(stream.format().sample);
    std::byte* const room = stream.room(frames);
    std::array<void*, kMostChannels> at{};
    for (unsigned channel = 0; channel < channels; ++channel) {
        auto* const plane = static_cast<std::byte*>(planes[channel]);
        at[channel] = plane == nullptr ? nullptr : plane + first * bytes;
    }
    interleave({at.data(), channels}, bytes, frames, room);
    const void* const passed = stream.prepare(room, frames, Memory::kConstant);
    if (passed != room) {
        for (unsigned channel = 0; channel < channels; ++channel) {
            at[channel] = room + channel * frames * bytes;
        }
        deinterleave(passed, bytes, frames, {at.data(), channels});
    }
    const snd_pcm_sframes_t taken = original(pcm, at.data(), frames);
    accepted(libraryOf<AlsaLibrary>(original), pcm, stream, taken);
    return taken;
}

/// A function that writes one plane a channel.
template <auto* kFunction>
constexpr auto hookOfPlanes() {
    return tqhook::hook<kFunction>(
        [](auto* original, snd_pcm_t* pcm, void** planes, snd_pcm_uframes_t frames) {
            const CallDepth depth;
            const NativeStream::Use stream(depth.isOutermost() ? pcm : nullptr);
            if (!stream || planes == nullptr) {
                return original(pcm, planes, frames);
            }
            const auto& alsa = libraryOf<AlsaLibrary>(original);
            const auto most = [&] { return longestPart(alsa, pcm, *stream.operator->()); };
            return inParts(frames, most, [&](std::size_t first, std::size_t count) {
                return writePlanes(original, *stream.operator->(), pcm, planes, first, count);
            });
        });
}

/// A function that moves the place where the program writes by as many frames as its result says.
template <auto* kFunction, class Then>
constexpr auto hookOfMove(Then /*then*/) {
    return tqhook::hook<kFunction>([](auto* original, snd_pcm_t* pcm, snd_pcm_uframes_t frames) {
        const CallDepth depth;
        const snd_pcm_sframes_t result = original(pcm, frames);
        if (const NativeStream::Use stream(depth.isOutermost() && result > 0 ? pcm : nullptr);
            stream) {
            Then{}(*stream.operator->(), static_cast<std::size_t>(result));
        }
        return result;
    });
}

/// A function that has done what it says, to all linked pcms, when its result is not negative.
template <auto* kFunction, class Then>
constexpr auto hookOfControl(Then /*then*/) {
    return tqhook::hook<kFunction>([](auto* original, snd_pcm_t* pcm, auto... arguments) {
        const CallDepth depth;
        const int result = original(pcm, arguments...);
        if (depth.isOutermost() && result >= 0) {
            withLinked(pcm, [&](NativeStream& stream) { Then{}(stream, arguments...); });
        }
        return result;
    });
}

/// What is thrown away of a pcm and of all that are linked with it.
void dropLinked(snd_pcm_t* pcm, std::optional<std::size_t> unheard) {
    withLinked(pcm, [&](NativeStream& stream) {
        unheard ? stream.flushed(*unheard) : stream.flushed();
        stream.frozen(false);
    });
}

/// A function that throws away what has not been played.
template <auto* kFunction>
constexpr auto hookOfDrop() {
    return tqhook::hook<kFunction>([](auto* original, snd_pcm_t* pcm) {
        const CallDepth depth;
        const auto unheard = depth.isOutermost()
                                 ? unheardBefore(libraryOf<AlsaLibrary>(original), pcm)
                                 : std::nullopt;
        const int result = original(pcm);
        if (result >= 0 && depth.isOutermost()) {
            dropLinked(pcm, unheard);
        }
        return result;
    });
}

/// What was written and never started is gone.
constexpr auto kPreparedAnew = [](NativeStream& stream) {
    (void)stream.takenBack(stream.unstarted());
    stream.frozen(false);
};

/// A close that follows no drain throws away what the device has not played.
void dropUnheard(const AlsaLibrary& alsa, snd_pcm_t* pcm) {
    const NativeStream::Use stream(pcm);
    if (!stream) {
        return;
    }
    if (isUnstarted(alsa, pcm)) {
        (void)stream->takenBack(stream->unstarted());
        return;
    }
    stream->started();
    if (const auto unheard = unheardBefore(alsa, pcm)) {
        stream->flushed(*unheard);
    }
}

/// Without memory the pcms are followed one by one.
void noteLink(snd_pcm_t* pcm, snd_pcm_t* other) {
    const GuardScope guard;
    withoutThrowing([&] { AlsaLinks::shared().link(pcm, other); });
}

/// Frames from `offset` on, at most as many as a stream holds.
snd_pcm_sframes_t commitPart(decltype(&snd_pcm_mmap_commit) original, NativeStream& stream,
                             snd_pcm_t* pcm, const AlsaPiece& piece) {
    const std::size_t frames = piece.frames;
    std::byte* const room = stream.room(frames);
    readPiece(piece, room);
    const void* const passed = stream.prepare(room, frames, Memory::kConstant);
    if (passed != room) {
        writePiece(piece, passed, 0);
    }
    const snd_pcm_sframes_t result = original(pcm, piece.offset, frames);
    const std::size_t taken = result > 0 ? static_cast<std::size_t>(result) : 0;
    if (passed != room && taken < frames) {
        // The program finds the rest as it left it, to commit it again.
        writePiece(piece, room, taken);
    }
    accepted(libraryOf<AlsaLibrary>(original), pcm, stream, result);
    return result;
}

snd_pcm_sframes_t commit(decltype(&snd_pcm_mmap_commit) original, NativeStream& stream,
                         snd_pcm_t* pcm, snd_pcm_uframes_t offset, snd_pcm_uframes_t frames) {
    AlsaPiece piece{static_cast<const snd_pcm_channel_area_t*>(stream.kept()),
                    stream.format().channels, bytesPerSample(stream.format().sample), offset,
                    frames};
    if (!isReachable(piece)) {
        return original(pcm, offset, frames);
    }
    const auto most = [&] { return stream.longestPiece(); };
    return inParts(frames, most, [&](std::size_t first, std::size_t count) {
        piece.offset = offset + first;
        piece.frames = count;
        return commitPart(original, stream, pcm, piece);
    });
}

/// The program asked for a device, and got an error.
void noteRefusal(const AlsaLibrary& alsa, const char* device, snd_pcm_stream_t direction,
                 int error) {
    if (direction == SND_PCM_STREAM_PLAYBACK && device != nullptr) {
        NativeStream::refused("alsa", device,
                              alsa.errorText == nullptr ? "error" : alsa.errorText(error));
    }
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&snd_pcm_open>([](auto* original, snd_pcm_t** pcm, const char* device,
                                   snd_pcm_stream_t direction, int mode) {
        const CallDepth depth;
        const int result = original(pcm, device, direction, mode);
        if (result < 0 && depth.isOutermost()) {
            noteRefusal(libraryOf<AlsaLibrary>(original), device, direction, result);
        }
        return result;
    }),
    tqhook::hook<&snd_pcm_hw_params>(
        [](auto* original, snd_pcm_t* pcm, snd_pcm_hw_params_t* params) {
            const CallDepth depth;
            const int result = original(pcm, params);
            if (result >= 0 && depth.isOutermost()) {
                if (const auto& alsa = libraryOf<AlsaLibrary>(original); alsa.isComplete()) {
                    beginStream(alsa, pcm, alsaFormat(alsa, params));
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
    hookOfMove<&snd_pcm_rewind>(
        [](NativeStream& stream, std::size_t frames) { stream.takenBack(frames); }),
    hookOfMove<&snd_pcm_forward>(
        [](NativeStream& stream, std::size_t frames) { stream.skipped(frames); }),
    hookOfControl<&snd_pcm_pause>(
        [](NativeStream& stream, int isPaused) { stream.frozen(isPaused != 0); }),
    hookOfControl<&snd_pcm_resume>([](NativeStream& stream) { stream.frozen(false); }),
    hookOfDrop<&snd_pcm_reset>(),
    hookOfControl<&snd_pcm_recover>([](NativeStream& stream, int error, int /*isSilent*/) {
        // A call that a signal has ended is no reason to prepare it.
        if (std::abs(error) != EINTR) {
            kPreparedAnew(stream);
        }
    }),
    hookOfDrop<&snd_pcm_drop>(),
    hookOfControl<&snd_pcm_start>([](NativeStream& stream) { stream.started(); }),
    hookOfControl<&snd_pcm_prepare>(kPreparedAnew),
    tqhook::hook<&snd_pcm_drain>([](auto* original, snd_pcm_t* pcm) {
        const CallDepth depth;
        if (depth.isOutermost()) {
            // Before it waits. ALSA ends a pause to play out what is there.
            withLinked(pcm, [](NativeStream& stream) {
                stream.frozen(false);
                stream.started();
            });
        }
        return original(pcm);
    }),
    tqhook::hook<&snd_pcm_link>([](auto* original, snd_pcm_t* pcm, snd_pcm_t* other) {
        const CallDepth depth;
        const int result = original(pcm, other);
        if (result >= 0 && depth.isOutermost()) {
            noteLink(pcm, other);
        }
        return result;
    }),
    tqhook::hook<&snd_pcm_unlink>([](auto* original, snd_pcm_t* pcm) {
        const CallDepth depth;
        const int result = original(pcm);
        if (result >= 0 && depth.isOutermost()) {
            AlsaLinks::shared().unlink(pcm);
        }
        return result;
    }),
    tqhook::hook<&snd_pcm_set_chmap>(
        [](auto* original, snd_pcm_t* pcm, const snd_pcm_chmap_t* map) {
            const CallDepth depth;
            const int result = original(pcm, map);
            if (result >= 0 && depth.isOutermost() && map != nullptr) {
                followMap(libraryOf<AlsaLibrary>(original), pcm, *map);
            }
            return result;
        }),
    tqhook::hook<&snd_pcm_hw_free>([](auto* original, snd_pcm_t* pcm) {
        const int result = original(pcm);
        if (result >= 0) {
            NativeStream::close(pcm, NativeStream::Handle::kStays);
        }
        return result;
    }),
    tqhook::hook<&snd_pcm_close>([](auto* original, snd_pcm_t* pcm) {
        dropUnheard(libraryOf<AlsaLibrary>(original), pcm);
        // Before the handle can come back.
        NativeStream::close(pcm);
        AlsaLinks::shared().unlink(pcm);
        return original(pcm);
    }),
};

}  // namespace

NativeApi alsaApi() {
    static const auto rows = kHooks.rows();
    return {"alsa", rows};
}

}  // namespace tq::bridges
