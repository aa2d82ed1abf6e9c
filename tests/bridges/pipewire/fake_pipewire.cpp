#include <spa/param/param.h>

#include <algorithm>
#include <cerrno>

#include "bridges/pipewire/FakePipeWire.h"

// What libpipewire exports, as far as the bridge and its tests call it.

namespace {

constexpr std::size_t kBytes = std::size_t{1} << 18U;

FakePort& portOf(void* port) {
    return *static_cast<FakePort*>(port);
}

void changeState(pw_filter* filter, pw_filter_state before, pw_filter_state state) {
    for (const auto& [events, data] : filter->listeners) {
        events->state_changed(data, before, state, nullptr);
    }
}

int answer(const FakeNode& node) {
    errno = node.answer == 0 ? errno : ENXIO;
    return node.answer;
}

void own(FakeNode& node, const char* name, pw_properties* properties) {
    node.name = name;
    node.items.assign(
        properties == nullptr ? nullptr : properties->dict.items,
        properties == nullptr ? nullptr : properties->dict.items + properties->dict.n_items);
    node.properties.dict.items = node.items.data();
    node.properties.dict.n_items = static_cast<std::uint32_t>(node.items.size());
}

}  // namespace

FakeBuffer::FakeBuffer() {
    for (std::size_t i = 0; i < kFakePlanes; ++i) {
        memory[i].resize(kBytes);
        datas[i].data = memory[i].data();
        datas[i].maxsize = kBytes;
        datas[i].chunk = &chunks[i];
    }
    buffer.n_datas = 1;
    buffer.datas = datas.data();
    handle.buffer = &buffer;
}

extern "C" {

void fake_pw_format(pw_stream* stream, const spa_pod* format) {
    // The one that hears of it may take itself away.
    const auto listeners = stream->listeners;
    for (const auto& [events, data] : listeners) {
        if (events->param_changed != nullptr) {
            events->param_changed(data, SPA_PARAM_Format, format);
        }
    }
}
void fake_pw_process(pw_stream* stream) {
    const auto listeners = stream->listeners;
    for (const auto& [events, data] : listeners) {
        if (events->process != nullptr) {
            events->process(data);
        }
    }
}
void fake_pw_run(pw_filter* filter, std::uint32_t sampleRate) {
    filter->position.clock.rate = {1, sampleRate};
    for (const auto& [events, data] : filter->listeners) {
        events->io_changed(data, nullptr, SPA_IO_Position, &filter->position,
                           sizeof filter->position);
    }
    changeState(filter, PW_FILTER_STATE_PAUSED, PW_FILTER_STATE_STREAMING);
}
void fake_pw_pause(pw_filter* filter) {
    changeState(filter, PW_FILTER_STATE_STREAMING, PW_FILTER_STATE_PAUSED);
}
void fake_pw_cycle(pw_filter* filter, std::uint32_t frames) {
    for (const auto& port : filter->ports) {
        port->isGiven = false;
    }
    filter->position.clock.duration = frames;
    filter->listeners.front().first->process(filter->listeners.front().second, &filter->position);
    for (std::uint32_t frame = 0; frame < frames; ++frame) {
        for (const auto& port : filter->ports) {
            if (port->isOutput) {
                const auto* const samples =
                    reinterpret_cast<const float*>(port->buffer.memory[0].data());
                filter->heard.push_back(port->isGiven ? samples[frame] : 0);
            }
        }
    }
}

const char* pw_properties_get(const pw_properties* properties, const char* key) {
    return spa_dict_lookup(&properties->dict, key);
}

pw_stream* pw_stream_new(pw_core* /*core*/, const char* name, pw_properties* properties) {
    auto stream = std::make_unique<pw_stream>();
    own(*stream, name, properties);
    return stream.release();
}
void pw_stream_destroy(pw_stream* stream) {
    const auto listeners = stream->listeners;
    for (const auto& [events, data] : listeners) {
        if (events->destroy != nullptr) {
            events->destroy(data);
        }
    }
    stream->listeners.clear();
    // The test looks at it afterwards.
    stream->isDestroyed = true;
}
void pw_stream_add_listener(pw_stream* stream, spa_hook* /*listener*/,
                            const pw_stream_events* events, void* data) {
    stream->listeners.emplace_back(events, data);
}
const char* pw_stream_get_name(pw_stream* stream) {
    return stream->name.c_str();
}
const pw_properties* pw_stream_get_properties(pw_stream* stream) {
    return &stream->properties;
}
pw_core* pw_context_connect(pw_context* /*context*/, pw_properties* /*properties*/,
                            std::size_t /*userBytes*/) {
    errno = EHOSTDOWN;
    return nullptr;
}
int pw_stream_connect(pw_stream* stream, pw_direction /*direction*/, std::uint32_t /*target*/,
                      pw_stream_flags /*flags*/, const spa_pod** /*params*/,
                      std::uint32_t /*count*/) {
    return answer(*stream);
}
int pw_stream_disconnect(pw_stream* stream) {
    return answer(*stream);
}
pw_buffer* pw_stream_dequeue_buffer(pw_stream* stream) {
    return &stream->buffer.handle;
}
int pw_stream_queue_buffer(pw_stream* stream, pw_buffer* buffer) {
    for (std::uint32_t i = 0; stream->answer == 0 && i < buffer->buffer->n_datas; ++i) {
        const spa_data& data = buffer->buffer->datas[i];
        const std::uint32_t from = std::min(data.chunk->offset, data.maxsize);
        if (data.data != nullptr) {
            stream->taken[i].append(static_cast<const char*>(data.data) + from,
                                    std::min(data.chunk->size, data.maxsize - from));
        }
    }
    return answer(*stream);
}
int pw_stream_set_active(pw_stream* stream, bool isActive) {
    stream->isActive = isActive;
    return answer(*stream);
}
int pw_stream_get_time_n(pw_stream* stream, pw_time* time, std::size_t /*size*/) {
    time->queued_buffers = stream->queued;
    return 0;
}
int pw_stream_flush(pw_stream* stream, bool isDrain) {
    stream->flushes.push_back(isDrain);
    return answer(*stream);
}

pw_filter* pw_filter_new(pw_core* /*core*/, const char* name, pw_properties* properties) {
    auto filter = std::make_unique<pw_filter>();
    own(*filter, name, properties);
    return filter.release();
}
pw_filter* pw_filter_new_simple(pw_loop* /*loop*/, const char* name, pw_properties* properties,
                                const pw_filter_events* events, void* data) {
    pw_filter* const filter = pw_filter_new(nullptr, name, properties);
    filter->listeners.emplace_back(events, data);
    return filter;
}
void pw_filter_destroy(pw_filter* filter) {
    for (const auto& [events, data] : filter->listeners) {
        if (events->destroy != nullptr) {
            events->destroy(data);
        }
    }
    filter->listeners.clear();
    filter->isDestroyed = true;
}
void pw_filter_add_listener(pw_filter* filter, spa_hook* /*listener*/,
                            const pw_filter_events* events, void* data) {
    filter->listeners.emplace_back(events, data);
}
const char* pw_filter_get_name(pw_filter* filter) {
    return filter->name.c_str();
}
const pw_properties* pw_filter_get_properties(pw_filter* filter, void* /*port*/) {
    return &filter->properties;
}
int pw_filter_disconnect(pw_filter* filter) {
    return answer(*filter);
}
void* pw_filter_add_port(pw_filter* filter, pw_direction direction, pw_filter_port_flags /*flags*/,
                         std::size_t /*dataSize*/, pw_properties* /*properties*/,
                         const spa_pod** /*params*/, std::uint32_t /*count*/) {
    if (answer(*filter) != 0) {
        return nullptr;
    }
    filter->ports.push_back(std::make_unique<FakePort>());
    filter->ports.back()->filter = filter;
    filter->ports.back()->isOutput = direction == PW_DIRECTION_OUTPUT;
    return filter->ports.back().get();
}
int pw_filter_remove_port(void* port) {
    pw_filter* const filter = portOf(port).filter;
    auto& ports = filter->ports;
    ports.erase(std::find_if(ports.begin(), ports.end(),
                             [&](const auto& each) { return each.get() == port; }));
    return answer(*filter);
}
void* pw_filter_get_dsp_buffer(void* port, std::uint32_t /*frames*/) {
    FakePort& own = portOf(port);
    own.isGiven = own.hasMemory;
    return own.hasMemory ? own.buffer.memory[0].data() : nullptr;
}
pw_buffer* pw_filter_dequeue_buffer(void* port) {
    return &portOf(port).buffer.handle;
}
int pw_filter_queue_buffer(void* port, pw_buffer* buffer) {
    portOf(port).isGiven = buffer != nullptr;
    return answer(*portOf(port).filter);
}

}  // extern "C"
