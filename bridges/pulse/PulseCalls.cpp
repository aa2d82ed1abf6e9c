// PulseAudio: streams are pa_streams that are connected to a sink, from the moment the server has
// settled their format.

#include <pulse/pulseaudio.h>

#include <cerrno>

#include "bridges/core/CallDepth.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "bridges/pulse/PulseSettling.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Kind = PulseStream::Kind;

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

/// It could not reach its server; one that was there and has gone is no such case.
void noteRefusal(const PulseLibrary& pulse, const pa_context* context) {
    const CallDepth depth;
    if (!depth.isOutermost() || pulse.contextError == nullptr || pulse.errorText == nullptr) {
        return;
    }
    const int error = pulse.contextError(context);
    const char* const reason = pulse.errorText(error);
    if (error != PA_ERR_CONNECTIONTERMINATED) {
        tryTo([&] {
            NativeStream::refused("pulse", streams().nameOf(context),
                                  reason == nullptr ? "error" : reason);
        });
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
    if (record->onStart.call != nullptr) {
        record->onStart.call(stream, record->onStart.context);
    }
}

void ranDry(pa_stream* stream, void* /*context*/) {
    PulseStream* const record = streams().find(stream);
    if (record == nullptr) {
        return;
    }
    record->ranDry();
    if (record->onUnderflow.call != nullptr) {
        record->onUnderflow.call(stream, record->onUnderflow.context);
    }
}

/// A function that sets one of the callbacks whose place ours takes.
template <auto* kFunction, auto kNotice, pa_stream_notify_cb_t kOurs>
constexpr auto hookOfNotice() {
    return tqhook::hook<kFunction>(
        [](auto* original, pa_stream* stream, pa_stream_notify_cb_t callback, void* context) {
            PulseStream* const record = streams().find(stream);
            if (record == nullptr || callback == kOurs) {
                original(stream, callback, context);
                return;
            }
            record->*kNotice = {callback, context};
            original(stream, kOurs, nullptr);
        });
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
    tqhook::hook<&pa_context_connect>([](auto* original, pa_context* context, const char* server,
                                         pa_context_flags_t flags, const pa_spawn_api* spawning) {
        const int result = original(context, server, flags, spawning);
        if (result < 0) {
            noteRefusal(libraryOf<PulseLibrary>(original), context);
        }
        return result;
    }),
    tqhook::hook<&pa_context_get_state>([](auto* original, const pa_context* context) {
        const pa_context_state_t state = original(context);
        if (state == PA_CONTEXT_FAILED) {
            noteRefusal(libraryOf<PulseLibrary>(original), context);
        }
        return state;
    }),
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
                const bool tells =
                    pulse.setStartedCallback != nullptr && pulse.setUnderflowCallback != nullptr;
                record->isStarted = !tells;
                if (tells) {
                    pulse.setStartedCallback(stream, started, nullptr);
                    pulse.setUnderflowCallback(stream, ranDry, nullptr);
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

    // ---- what is heard when ----
    hookOfNotice<&pa_stream_set_started_callback, &PulseStream::onStart, started>(),
    hookOfNotice<&pa_stream_set_underflow_callback, &PulseStream::onUnderflow, ranDry>(),
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
    tqhook::hook<&pa_stream_prebuf>(
        [](auto* original, pa_stream* stream, pa_stream_success_cb_t callback, void* context) {
            pa_operation* const operation = original(stream, callback, context);
            if (operation != nullptr) {
                const std::size_t bytes = prebufferOf(libraryOf<PulseLibrary>(original), stream);
                with(stream, [bytes](PulseStream& record, NativeStream& use) {
                    record.prebuffered(use, bytes);
                });
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
