// PipeWire: the output ports of a pw_filter are one stream while it runs. What the program's
// process has put into them is read, and changed where it is, before the library goes on.

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "bridges/core/CallDepth.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/WithoutThrowing.h"
#include "bridges/pipewire/PipeWireFilters.h"
#include "bridges/pipewire/PipeWireFormat.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

constexpr std::string_view kAudioPort = "32 bit float mono audio";

bool isAudioOutput(pw_direction direction, const pw_properties* properties) {
    const char* const format =
        properties == nullptr ? nullptr : spa_dict_lookup(&properties->dict, PW_KEY_FORMAT_DSP);
    return direction == PW_DIRECTION_OUTPUT && format != nullptr && format == kAudioPort;
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&pw_filter_new_simple>([](auto* original, pw_loop* loop, const char* name,
                                           pw_properties* properties,
                                           const pw_filter_events* events, void* data) {
        const CallDepth depth;
        std::unique_ptr<PipeWireFilter> own;
        PipeWireFilter::Events* ours = nullptr;
        const PipeWireFilterLibrary& library = libraryOf<PipeWireFilterLibrary>(original);
        if (events != nullptr && depth.isOutermost() && library.isComplete()) {
            ours = withoutThrowing([&] {
                own = std::make_unique<PipeWireFilter>(library);
                return &own->addEvents(*events, data);
            });
        }
        if (ours == nullptr) {
            return original(loop, name, properties, events, data);
        }
        pw_filter* const filter = original(loop, name, properties, &ours->table(), ours->data());
        if (filter != nullptr) {
            PipeWireFilters::shared().add(filter, std::move(own));
        }
        return filter;
    }),
    tqhook::hook<&pw_filter_add_listener>([](auto* original, pw_filter* filter, spa_hook* listener,
                                             const pw_filter_events* events, void* data) {
        const CallDepth depth;
        PipeWireFilter::Events* const ours =
            events == nullptr || !depth.isOutermost()
                ? nullptr
                : withoutThrowing([&]() -> PipeWireFilter::Events* {
                      PipeWireFilter* const own = PipeWireFilters::shared().filter(
                          filter, libraryOf<PipeWireFilterLibrary>(original));
                      return own == nullptr ? nullptr : &own->addEvents(*events, data);
                  });
        if (ours == nullptr) {
            original(filter, listener, events, data);
        } else {
            original(filter, listener, &ours->table(), ours->data());
        }
    }),
    tqhook::hook<&pw_filter_add_port>([](auto* original, pw_filter* filter, pw_direction direction,
                                         pw_filter_port_flags flags, std::size_t dataSize,
                                         pw_properties* properties, const spa_pod** params,
                                         std::uint32_t count) {
        const CallDepth depth;
        // Before: the properties are the library's afterwards.
        const bool isAudio = isAudioOutput(direction, properties) && depth.isOutermost();
        const tq_speaker speaker =
            isAudio ? pipeWireSpeaker(spa_dict_lookup(&properties->dict, PW_KEY_AUDIO_CHANNEL))
                    : TQ_SPEAKER_UNKNOWN;
        void* const port = original(filter, direction, flags, dataSize, properties, params, count);
        if (port != nullptr && isAudio) {
            withoutThrowing([&] {
                if (PipeWireFilter* const own = PipeWireFilters::shared().filter(
                        filter, libraryOf<PipeWireFilterLibrary>(original))) {
                    PipeWireFilters::shared().addPort(*own, port, speaker);
                }
            });
        }
        return port;
    }),
    tqhook::hook<&pw_filter_remove_port>([](auto* original, void* port) {
        // Before the handle can come back.
        withoutThrowing([&] { PipeWireFilters::shared().removePort(port); });
        return original(port);
    }),
    tqhook::hook<&pw_filter_get_dsp_buffer>([](auto* original, void* port, std::uint32_t frames) {
        void* const memory = original(port, frames);
        if (const auto* const own = PipeWireFilters::shared().port(port)) {
            own->filled(memory, frames);
        }
        return memory;
    }),
    tqhook::hook<&pw_filter_queue_buffer>([](auto* original, void* port, pw_buffer* buffer) {
        const auto* const own = PipeWireFilters::shared().port(port);
        if (own != nullptr && buffer != nullptr && buffer->buffer->n_datas != 0) {
            const spa_data& data = buffer->buffer->datas[0];
            const std::uint32_t from = std::min(data.chunk->offset, data.maxsize);
            if (data.data != nullptr) {
                own->filled(static_cast<std::byte*>(data.data) + from,
                            std::min(data.chunk->size, data.maxsize - from) / sizeof(float));
            }
        }
        return original(port, buffer);
    }),
    tqhook::hook<&pw_filter_disconnect>([](auto* original, pw_filter* filter) {
        const int result = original(filter);
        PipeWireFilters::shared().stop(filter);
        return result;
    }),
    tqhook::hook<&pw_filter_destroy>([](auto* original, pw_filter* filter) {
        const auto own = PipeWireFilters::shared().take(filter);
        // Its last cycle and its last events are in there.
        original(filter);
    }),
};

}  // namespace

NativeApi pipeWireFilterApi() {
    static const auto rows = kHooks.rows();
    return {"pipewire", rows};
}

}  // namespace tq::bridges
