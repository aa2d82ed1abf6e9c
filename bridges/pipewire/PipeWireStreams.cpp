#include "bridges/pipewire/PipeWireStreams.h"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>

#include "bridges/core/GuardScope.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/Planar.h"
#include "bridges/core/WithoutThrowing.h"
#include "bridges/pipewire/PipeWireFormat.h"

namespace tq::bridges {
namespace {

/// Far above the longest block of any graph.
constexpr std::size_t kMostFrames = 65536;
constexpr std::size_t kMostChannels = 8;

/// The samples of one of a buffer's memories, as its reader takes them.
struct Chunk {
    std::byte* data = nullptr;
    std::size_t bytes = 0;

    explicit Chunk(const spa_data& data_) {
        const std::uint32_t from = std::min(data_.chunk->offset, data_.maxsize);
        if (data_.data != nullptr) {
            data = static_cast<std::byte*>(data_.data) + from;
            bytes = std::min(data_.chunk->size, data_.maxsize - from);
        }
    }
};

}  // namespace

PipeWireLibrary::PipeWireLibrary(const void* known)
    : addListener(
          functionBeside<decltype(pw_stream_add_listener)>(known, "pw_stream_add_listener")),
      properties(
          functionBeside<decltype(pw_stream_get_properties)>(known, "pw_stream_get_properties")),
      name(functionBeside<decltype(pw_stream_get_name)>(known, "pw_stream_get_name")),
      property(functionBeside<decltype(pw_properties_get)>(known, "pw_properties_get")),
      time(functionBeside<decltype(pw_stream_get_time_n)>(known, "pw_stream_get_time_n")) {
}

const PipeWireLibrary& PipeWireLibrary::of(const void* known) {
    static const PipeWireLibrary library(known);
    return library;
}

void PipeWireStream::listen() {
    static constexpr pw_stream_events kEvents = [] {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.param_changed = &paramChanged;
        return events;
    }();
    library_.addListener(handle_, &listener_, &kEvents, this);
}

void PipeWireStream::paramChanged(void* stream, std::uint32_t id, const spa_pod* param) {
    if (id == SPA_PARAM_Format) {
        withoutThrowing([&] { static_cast<PipeWireStream*>(stream)->formatChanged(param); });
    }
}

void PipeWireStream::formatChanged(const spa_pod* param) {
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
    if (param == nullptr || spa_format_parse(param, &type, &subtype) < 0 ||
        type != SPA_MEDIA_TYPE_audio) {
        NativeStream::close(handle_);
        return;
    }
    auto layout = std::make_unique<Layout>();
    spa_audio_info_raw raw{};
    if (subtype == SPA_MEDIA_SUBTYPE_raw && spa_format_audio_raw_parse(param, &raw) >= 0) {
        const PipeWireSample sample = pipeWireSample(raw.format);
        layout->format = {sample.sample, raw.channels, static_cast<double>(raw.rate)};
        layout->isPlanar = sample.isPlanar;
        if ((raw.flags & SPA_AUDIO_FLAG_UNPOSITIONED) == 0 && raw.channels <= kMostChannels) {
            layout->format.speakers =
                pipeWireSpeakers(std::span<const std::uint32_t>(raw.position).first(raw.channels));
        }
    }
    // The same format is told again when other things of the stream are settled anew.
    if (NativeStream::Use(handle_) && layout_.owned() != nullptr &&
        layout_.owned()->format == layout->format &&
        layout_.owned()->isPlanar == layout->isPlanar) {
        return;
    }
    if (layout->isPlanar && layout->format.servable()) {
        layout->interleaved = ReservedMemory(kMostFrames * layout->format.bytesPerFrame());
    }
    const NativeFormat format = layout->format;
    layout_.publish(std::move(layout));
    NativeStream::open(handle_, format, "pipewire", name());
}

std::string PipeWireStream::name() const {
    const pw_properties* const properties = library_.properties(handle_);
    const char* node =
        properties == nullptr ? nullptr : library_.property(properties, PW_KEY_NODE_NAME);
    if (node == nullptr) {
        node = library_.name(handle_);
    }
    return node == nullptr ? "" : node;
}

std::size_t PipeWireStream::prepare(NativeStream& stream, const pw_buffer& buffer) noexcept {
    const GuardScope guard;
    const tqcommon::Published<Layout>::Reader layout(layout_);
    const spa_buffer& memory = *buffer.buffer;
    if (!layout || layout->format != stream.format() || memory.n_datas == 0) {
        return 0;
    }
    if (!layout->isPlanar) {
        const Chunk chunk(memory.datas[0]);
        const std::size_t frames = chunk.bytes / layout->format.bytesPerFrame();
        (void)stream.prepare(chunk.data, frames, NativeStream::Memory::kChangeable);
        return frames;
    }
    const std::size_t channels = layout->format.channels;
    const unsigned sampleBytes = bytesPerSample(layout->format.sample);
    std::array<const void*, kMostChannels> from{};
    std::array<void*, kMostChannels> to{};
    std::size_t frames = kMostFrames;
    for (std::size_t i = 0; i < channels && i < memory.n_datas; ++i) {
        const Chunk chunk(memory.datas[i]);
        from[i] = to[i] = chunk.data;
        frames = std::min(frames, chunk.bytes / sampleBytes);
    }
    std::byte* const interleaved = layout->interleaved.data();
    if (memory.n_datas < channels || interleaved == nullptr) {
        return 0;
    }
    interleave({from.data(), channels}, sampleBytes, frames, interleaved);
    const void* const passed = stream.prepare(interleaved, frames, NativeStream::Memory::kConstant);
    if (passed != interleaved) {
        deinterleave(passed, sampleBytes, frames, {to.data(), channels});
    }
    return frames;
}

bool PipeWireStream::isTaken() const noexcept {
    pw_time time{};
    return library_.time != nullptr && library_.time(handle_, &time, sizeof time) == 0 &&
           time.queued_buffers == 0;
}

PipeWireStreams& PipeWireStreams::shared() {
    static auto* const instance = new PipeWireStreams;
    return *instance;
}

void PipeWireStreams::connect(pw_stream* handle, const PipeWireLibrary& library) {
    PipeWireStream* made = nullptr;
    {
        const std::scoped_lock guard(lock_);
        auto& known = streams_[handle];
        if (known == nullptr && library.isComplete()) {
            known = std::make_unique<PipeWireStream>(handle, library);
            made = known.get();
            table_.add(handle, *made);
        }
    }
    if (made != nullptr) {
        made->listen();
    }
}

std::unique_ptr<PipeWireStream> PipeWireStreams::take(pw_stream* handle) {
    const std::scoped_lock guard(lock_);
    const auto found = streams_.find(handle);
    if (found == streams_.end()) {
        return nullptr;
    }
    table_.remove(handle);
    std::unique_ptr<PipeWireStream> taken = std::move(found->second);
    streams_.erase(found);
    return taken;
}

}  // namespace tq::bridges
