// PipeWire: a pw_stream that plays, from the moment that its format is settled. A block is taken
// where the program queues it; whether that is on the main loop or on the data thread is its
// choice.

#include <pipewire/pipewire.h>

#include <cerrno>
#include <cstring>

#include "bridges/core/CallDepth.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "bridges/core/WithoutThrowing.h"
#include "bridges/pipewire/PipeWireStreams.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

/// Before a pause or a flush: all that the unit still has will have been heard.
bool isTaken(const pw_stream* stream) noexcept {
    const PipeWireStream* const own = PipeWireStreams::shared().find(stream);
    return own != nullptr && own->isTaken();
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&pw_context_connect>(
        [](auto* original, pw_context* context, pw_properties* properties, std::size_t userBytes) {
            const CallDepth depth;
            pw_core* const core = original(context, properties, userBytes);
            if (core == nullptr && depth.isOutermost()) {
                const int error = errno;
                NativeStream::refused("pipewire", "server", std::strerror(error));
                errno = error;
            }
            return core;
        }),
    tqhook::hook<&pw_stream_connect>([](auto* original, pw_stream* stream, pw_direction direction,
                                        std::uint32_t target, pw_stream_flags flags,
                                        const spa_pod** params, std::uint32_t count) {
        const CallDepth depth;
        if (direction == PW_DIRECTION_OUTPUT && depth.isOutermost()) {
            // Before: formats may be settled while the call runs.
            withoutThrowing([&] {
                PipeWireStreams::shared().connect(stream, libraryOf<PipeWireLibrary>(original));
            });
        }
        return original(stream, direction, target, flags, params, count);
    }),
    tqhook::hook<&pw_stream_queue_buffer>([](auto* original, pw_stream* stream, pw_buffer* buffer) {
        const CallDepth depth;
        PipeWireStream* const own =
            depth.isOutermost() ? PipeWireStreams::shared().find(stream) : nullptr;
        const NativeStream::Use native(own == nullptr ? nullptr : stream);
        if (!native) {
            return original(stream, buffer);
        }
        const std::size_t frames = own->prepare(*native.operator->(), *buffer);
        const int result = original(stream, buffer);
        native->accepted(result < 0 ? 0 : frames);
        return result;
    }),
    tqhook::hook<&pw_stream_set_active>([](auto* original, pw_stream* stream, bool isActive) {
        const bool isHeard = !isActive && isTaken(stream);
        const int result = original(stream, isActive);
        if (const NativeStream::Use native(stream); native && result >= 0 && !isHeard) {
            native->frozen(!isActive);
        }
        return result;
    }),
    tqhook::hook<&pw_stream_flush>([](auto* original, pw_stream* stream, bool isDrain) {
        const bool isHeard = isDrain || isTaken(stream);
        const int result = original(stream, isDrain);
        if (const NativeStream::Use native(stream); native && result >= 0 && !isHeard) {
            native->flushed();
        }
        return result;
    }),
    tqhook::hook<&pw_stream_disconnect>([](auto* original, pw_stream* stream) {
        const int result = original(stream);
        NativeStream::close(stream);
        return result;
    }),
    tqhook::hook<&pw_stream_destroy>([](auto* original, pw_stream* stream) {
        // Before the handle can come back. It is asked for formats until it is gone.
        const auto own = PipeWireStreams::shared().take(stream);
        NativeStream::close(stream);
        original(stream);
    }),
};

}  // namespace

NativeApi pipeWireApi() {
    static const auto rows = kHooks.rows();
    return {"pipewire", rows};
}

}  // namespace tq::bridges
