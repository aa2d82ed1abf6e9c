// PulseAudio: streams are pa_streams that are connected to a sink, from the moment the server has
// settled their format.

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "bridges/core/CallDepth.h"
#include "bridges/core/GuardScope.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "bridges/core/WithoutThrowing.h"
#include "bridges/pulse/PulseFormat.h"
#include "bridges/pulse/PulseLibrary.h"
#include "bridges/pulse/PulseStreams.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Kind = PulseStream::Kind;
using Memory = NativeStream::Memory;

PulseStreams& streams() {
    return PulseStreams::shared();
}

/// Work of ours alone: no call into libpulse.
template <class Work>
void tryTo(Work work) {
    const GuardScope guard;
    withoutThrowing(work);
}

/// The first name that says something.
std::string nameOf(const PulseLibrary& pulse, const char* given, const pa_proplist* properties,
                   const char* key) {
    const char* const own = properties == nullptr || pulse.property == nullptr
                                ? nullptr
                                : pulse.property(properties, key);
    const char* const name = own != nullptr ? own : given;
    return name == nullptr ? "" : name;
}

void noteContext(const PulseLibrary& pulse, pa_context* context, const char* given,
                 const pa_proplist* properties) {
    if (context == nullptr) {
        return;
    }
    std::string name = nameOf(pulse, given, properties, PA_PROP_APPLICATION_NAME);
    tryTo([&] {
        streams().contextMade(context, name.empty() ? program_invocation_short_name : name);
    });
}

void noteStream(const PulseLibrary& pulse, pa_stream* stream, pa_context* context,
                const char* given, const pa_proplist* properties) {
    if (stream != nullptr) {
        const std::string name = nameOf(pulse, given, properties, PA_PROP_MEDIA_NAME);
        tryTo([&] { streams().made(stream, context, name); });
    }
}

std::size_t prebufferOf(const PulseLibrary& pulse, pa_stream* stream) {
    const pa_buffer_attr* const attributes = pulse.bufferAttr(stream);
    // A server that does not say has its own default, which a program fills at once.
    return attributes == nullptr || attributes->prebuf > attributes->maxlength ? 0
                                                                               : attributes->prebuf;
}

NativeFormat formatOf(const PulseLibrary& pulse, pa_stream* stream) {
    const pa_format_info* const format =
        pulse.formatInfo == nullptr ? nullptr : pulse.formatInfo(stream);
    const pa_sample_spec* const spec = pulse.sampleSpec(stream);
    if (spec == nullptr || (format != nullptr && format->encoding != PA_ENCODING_PCM)) {
        return {};
    }
    const pa_channel_map* const map = pulse.channelMap(stream);
    return {pulseSample(spec->format), spec->channels, static_cast<double>(spec->rate),
            map == nullptr ? Speakers{} : pulseSpeakers(*map)};
}

/// The server has answered: from here on the stream's format is what the program writes.
void settle(const PulseLibrary& pulse, pa_stream* stream, PulseStream& record) {
    if (record.kind != Kind::kPlayback || record.isSettled || !pulse.isComplete() ||
        pulse.bufferAttr(stream) == nullptr) {
        return;
    }
    const NativeFormat format = formatOf(pulse, stream);
    const std::size_t prebuffer = prebufferOf(pulse, stream);
    NativeStream::open(stream, format, "pulse", record.name);
    record.isSettled = true;
    if (const NativeStream::Use use(stream); use) {
        record.settled(*use.operator->(), prebuffer);
    }
}

/// The program plays its stream faster or slower from here on. Changes of a small part follow
/// another clock: they are drift, which the pacing takes, and no other format.
void changeRate(pa_stream* stream, PulseStream& record, std::uint32_t rate) {
    constexpr double kAdjustment = 0.01;
    NativeFormat format;
    {
        const NativeStream::Use use(stream);
        if (!use || std::abs(rate / use->format().sampleRate - 1) < kAdjustment) {
            return;
        }
        format = use->format();
    }
    format.sampleRate = rate;
    NativeStream::open(stream, format, "pulse", record.name);
    if (const NativeStream::Use use(stream); use) {
        record.goesOn(*use.operator->());
    }
}

/// What a write hands on.
struct Passed {
    const void* samples;
    std::size_t bytes;
    std::int64_t offset;
    pa_seek_mode_t seek;
    /// Not all of the program's memory: that is not the library's to keep, and is released by the
    /// caller.
    bool isCopy;
};

/// One write of the program, in parts where it is longer than a stream holds.
template <class Pass>
int write(const PulseLibrary& pulse, pa_stream* stream, const void* samples, std::size_t bytes,
          std::int64_t offset, pa_seek_mode_t seek, Pass pass) {
    const CallDepth depth;
    PulseStream* const record = depth.isOutermost() ? streams().find(stream) : nullptr;
    if (record == nullptr) {
        return pass(Passed{samples, bytes, offset, seek, false});
    }
    settle(pulse, stream, *record);
    const NativeStream::Use use(stream);
    if (!use) {
        return pass(Passed{samples, bytes, offset, seek, false});
    }
    const std::size_t frameBytes = use->format().bytesPerFrame();
    // Only what begin_write has handed out may be passed on after it.
    const bool isBlock = record->block.holds(samples);
    const Memory memory = isBlock ? Memory::kChangeable : Memory::kConstant;
    const std::size_t most = isBlock ? bytes : use->atOnce() * frameBytes;
    const auto* from = static_cast<const std::byte*>(samples);
    std::size_t left = bytes;
    while (true) {
        const std::size_t part = std::min(left, most);
        const void* const passed = use->prepare(from, part / frameBytes, memory);
        const int result = pass(Passed{passed, part, offset, seek, passed != from || most < bytes});
        if (result < 0) {
            return result;
        }
        record->block = {};
        record->written(*use.operator->(), part / frameBytes, offset, seek,
                        prebufferOf(pulse, stream), pulse.underflow(stream));
        from += part;
        left -= part;
        if (left == 0) {
            return result;
        }
        offset = 0;
        seek = PA_SEEK_RELATIVE;
    }
}

/// `then` for a stream that is served.
template <class Then>
void with(const pa_stream* stream, Then then) {
    PulseStream* const record = streams().find(stream);
    if (const NativeStream::Use use(record != nullptr ? stream : nullptr); use) {
        then(*record, *use.operator->());
    }
}

/// In the place of the program's own callback, which it calls.
void started(pa_stream* stream, void* /*context*/) {
    PulseStream* const record = streams().find(stream);
    if (record == nullptr) {
        return;
    }
    {
        const NativeStream::Use use(stream);
        record->started(use ? use.operator->() : nullptr);
    }
    if (record->onStart != nullptr) {
        record->onStart(stream, record->onStartContext);
    }
}

constexpr tqhook::HookTable kHooks{
    // ---- names ----
    tqhook::hook<&pa_context_new>([](auto* original, pa_mainloop_api* loop, const char* name) {
        pa_context* const context = original(loop, name);
        noteContext(libraryOf<PulseLibrary>(original), context, name, nullptr);
        return context;
    }),
    tqhook::hook<&pa_context_new_with_proplist>(
        [](auto* original, pa_mainloop_api* loop, const char* name, const pa_proplist* properties) {
            pa_context* const context = original(loop, name, properties);
            noteContext(libraryOf<PulseLibrary>(original), context, name, properties);
            return context;
        }),
    tqhook::hook<&pa_stream_new>([](auto* original, pa_context* context, const char* name,
                                    const pa_sample_spec* spec, const pa_channel_map* map) {
        pa_stream* const stream = original(context, name, spec, map);
        noteStream(libraryOf<PulseLibrary>(original), stream, context, name, nullptr);
        return stream;
    }),
    tqhook::hook<&pa_stream_new_with_proplist>(
        [](auto* original, pa_context* context, const char* name, const pa_sample_spec* spec,
           const pa_channel_map* map, pa_proplist* properties) {
            pa_stream* const stream = original(context, name, spec, map, properties);
            noteStream(libraryOf<PulseLibrary>(original), stream, context, name, properties);
            return stream;
        }),
    tqhook::hook<&pa_stream_new_extended>([](auto* original, pa_context* context, const char* name,
                                             pa_format_info* const* formats, unsigned count,
                                             pa_proplist* properties) {
        pa_stream* const stream = original(context, name, formats, count, properties);
        noteStream(libraryOf<PulseLibrary>(original), stream, context, name, properties);
        return stream;
    }),

    // ---- life ----
    tqhook::hook<&pa_context_ref>([](auto* original, pa_context* context) {
        tryTo([&] { streams().contextHeld(context); });
        return original(context);
    }),
    tqhook::hook<&pa_context_unref>([](auto* original, pa_context* context) {
        tryTo([&] {
            if (streams().contextReleased(context)) {
                streams().contextEnded(context);
            }
        });
        original(context);
    }),
    tqhook::hook<&pa_context_disconnect>([](auto* original, pa_context* context) {
        tryTo([&] { streams().contextEnded(context); });
        original(context);
    }),
    tqhook::hook<&pa_stream_ref>([](auto* original, pa_stream* stream) {
        if (PulseStream* const record = streams().find(stream)) {
            ++record->references;
        }
        return original(stream);
    }),
    tqhook::hook<&pa_stream_unref>([](auto* original, pa_stream* stream) {
        if (PulseStream* const record = streams().find(stream)) {
            const PulseLibrary& pulse = libraryOf<PulseLibrary>(original);
            const bool isConnected = pulse.isComplete() && pulse.bufferAttr(stream) != nullptr;
            tryTo([&] { streams().released(*record, isConnected); });
        }
        original(stream);
    }),
    tqhook::hook<&pa_stream_connect_playback>(
        [](auto* original, pa_stream* stream, const char* device, const pa_buffer_attr* attributes,
           pa_stream_flags_t flags, const pa_cvolume* volume, pa_stream* synchronous) {
            PulseStream* const record = streams().find(stream);
            if (record != nullptr) {
                // Before the call: its callbacks see the stream connected.
                record->kind = Kind::kPlayback;
                record->corked(nullptr, (flags & PA_STREAM_START_CORKED) != 0, -1);
                const PulseLibrary& pulse = libraryOf<PulseLibrary>(original);
                record->isStarted = pulse.setStartedCallback == nullptr;
                if (!record->isStarted) {
                    pulse.setStartedCallback(stream, started, nullptr);
                }
            }
            const int result = original(stream, device, attributes, flags, volume, synchronous);
            if (record != nullptr && result < 0 && !record->isSettled) {
                record->kind = Kind::kUnconnected;
            }
            return result;
        }),
    tqhook::hook<&pa_stream_connect_record>([](auto* original, pa_stream* stream,
                                               const char* device, const pa_buffer_attr* attributes,
                                               pa_stream_flags_t flags) {
        if (PulseStream* const record = streams().find(stream)) {
            record->kind = Kind::kOther;
        }
        return original(stream, device, attributes, flags);
    }),
    tqhook::hook<&pa_stream_connect_upload>(
        [](auto* original, pa_stream* stream, std::size_t bytes) {
            if (PulseStream* const record = streams().find(stream)) {
                record->kind = Kind::kOther;
            }
            return original(stream, bytes);
        }),
    tqhook::hook<&pa_stream_get_state>([](auto* original, const pa_stream* stream) {
        const pa_stream_state_t state = original(stream);
        PulseStream* const record = streams().find(stream);
        if (record == nullptr) {
            return state;
        }
        if (state == PA_STREAM_READY) {
            settle(libraryOf<PulseLibrary>(original), const_cast<pa_stream*>(stream), *record);
        } else if (!PA_STREAM_IS_GOOD(state)) {
            tryTo([&] { streams().ended(*record); });
        }
        return state;
    }),
    tqhook::hook<&pa_stream_disconnect>([](auto* original, pa_stream* stream) {
        if (PulseStream* const record = streams().find(stream)) {
            tryTo([&] { streams().ended(*record); });
        }
        return original(stream);
    }),

    // ---- sound ----
    tqhook::hook<&pa_stream_begin_write>(
        [](auto* original, pa_stream* stream, void** block, std::size_t* bytes) {
            const int result = original(stream, block, bytes);
            PulseStream* const record = streams().find(stream);
            if (result >= 0 && record != nullptr) {
                record->block = {static_cast<const std::byte*>(*block), *bytes};
            }
            return result;
        }),
    tqhook::hook<&pa_stream_cancel_write>([](auto* original, pa_stream* stream) {
        const int result = original(stream);
        PulseStream* const record = streams().find(stream);
        if (result >= 0 && record != nullptr) {
            record->block = {};
        }
        return result;
    }),
    tqhook::hook<&pa_stream_write>([](auto* original, pa_stream* stream, const void* samples,
                                      std::size_t bytes, pa_free_cb_t release, std::int64_t offset,
                                      pa_seek_mode_t seek) {
        bool isReleased = false;
        const int result = write(libraryOf<PulseLibrary>(original), stream, samples, bytes, offset,
                                 seek, [&](const Passed& passed) {
                                     isReleased = passed.isCopy && release != nullptr;
                                     return original(stream, passed.samples, passed.bytes,
                                                     passed.isCopy ? nullptr : release,
                                                     passed.offset, passed.seek);
                                 });
        if (isReleased && result >= 0) {
            release(const_cast<void*>(samples));
        }
        return result;
    }),
    tqhook::hook<&pa_stream_write_ext_free>(
        [](auto* original, pa_stream* stream, const void* samples, std::size_t bytes,
           pa_free_cb_t release, void* released, std::int64_t offset, pa_seek_mode_t seek) {
            bool isReleased = false;
            const int result = write(libraryOf<PulseLibrary>(original), stream, samples, bytes,
                                     offset, seek, [&](const Passed& passed) {
                                         isReleased = passed.isCopy && release != nullptr;
                                         return original(stream, passed.samples, passed.bytes,
                                                         passed.isCopy ? nullptr : release,
                                                         passed.isCopy ? nullptr : released,
                                                         passed.offset, passed.seek);
                                     });
            if (isReleased && result >= 0) {
                release(released);
            }
            return result;
        }),

    tqhook::hook<&pa_stream_update_sample_rate>([](auto* original, pa_stream* stream,
                                                   std::uint32_t rate,
                                                   pa_stream_success_cb_t callback, void* context) {
        pa_operation* const operation = original(stream, rate, callback, context);
        PulseStream* const record = streams().find(stream);
        if (operation != nullptr && record != nullptr && record->isSettled) {
            changeRate(stream, *record, rate);
        }
        return operation;
    }),

    // ---- what is heard when ----
    tqhook::hook<&pa_stream_set_started_callback>(
        [](auto* original, pa_stream* stream, pa_stream_notify_cb_t callback, void* context) {
            PulseStream* const record = streams().find(stream);
            if (record == nullptr || callback == started) {
                original(stream, callback, context);
                return;
            }
            record->onStart = callback;
            record->onStartContext = context;
            original(stream, started, nullptr);
        }),
    // The server answers later; what the program asks for counts from here on.
    tqhook::hook<&pa_stream_cork>([](auto* original, pa_stream* stream, int isCorked,
                                     pa_stream_success_cb_t callback, void* context) {
        pa_operation* const operation = original(stream, isCorked, callback, context);
        PulseStream* const record = streams().find(stream);
        if (operation != nullptr && record != nullptr) {
            const NativeStream::Use use(stream);
            record->corked(use ? use.operator->() : nullptr, isCorked != 0,
                           libraryOf<PulseLibrary>(original).underflow(stream));
        }
        return operation;
    }),
    tqhook::hook<&pa_stream_flush>([](auto* original, pa_stream* stream,
                                      pa_stream_success_cb_t callback, void* context) {
        pa_operation* const operation = original(stream, callback, context);
        if (operation != nullptr) {
            const std::int64_t underflow = libraryOf<PulseLibrary>(original).underflow(stream);
            with(stream,
                 [&](PulseStream& record, NativeStream& use) { record.flushed(use, underflow); });
        }
        return operation;
    }),
    tqhook::hook<&pa_stream_drain>(
        [](auto* original, pa_stream* stream, pa_stream_success_cb_t callback, void* context) {
            pa_operation* const operation = original(stream, callback, context);
            if (operation != nullptr) {
                with(stream, [](PulseStream& record, NativeStream& use) { record.drained(use); });
            }
            return operation;
        }),
    tqhook::hook<&pa_stream_trigger>(
        [](auto* original, pa_stream* stream, pa_stream_success_cb_t callback, void* context) {
            pa_operation* const operation = original(stream, callback, context);
            if (operation != nullptr) {
                with(stream, [](PulseStream& record, NativeStream& use) { record.triggered(use); });
            }
            return operation;
        }),
};

}  // namespace

NativeApi pulseApi() {
    static const auto rows = kHooks.rows();
    return {"pulse", rows};
}

}  // namespace tq::bridges
