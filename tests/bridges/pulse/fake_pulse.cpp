#include "bridges/pulse/FakePulse.h"

// What libpulse exports, as far as the bridge and its tests call it.

namespace {

// Nothing is ever asked of it.
int operationPlace = 0;
auto* const kOperation = reinterpret_cast<pa_operation*>(&operationPlace);

pa_stream* newStream(pa_context* context, const pa_sample_spec* spec) {
    auto* const stream = new pa_stream;
    stream->context = context;
    if (spec != nullptr) {
        stream->spec = *spec;
    }
    stream->format.encoding = PA_ENCODING_PCM;
    stream->attributes = {4U << 20U, 0, 0, 0, 0};
    return stream;
}

int take(pa_stream* stream, const void* samples, std::size_t bytes, bool hasRelease) {
    const auto* const begin = static_cast<const char*>(samples);
    const std::vector<char>& block = stream->block;
    if (stream->isBlockOut &&
        (begin < block.data() || begin + bytes > block.data() + block.size())) {
        return -PA_ERR_INVALID;
    }
    stream->passed = samples;
    stream->hasRelease = hasRelease;
    stream->isBlockOut = false;
    if (stream->answer == 0) {
        stream->taken.append(static_cast<const char*>(samples), bytes);
        if (!stream->startsLate) {
            stream->starts();
        }
    }
    return stream->answer;
}

int connect(pa_stream* stream) {
    stream->state = PA_STREAM_CREATING;
    return 0;
}

}  // namespace

extern "C" {

pa_context* pa_context_new(pa_mainloop_api* /*loop*/, const char* /*name*/) {
    return new pa_context;
}
void pa_context_unref(pa_context* context) {
    if (--context->references == 0) {
        delete context;
    }
}
int pa_context_connect(pa_context* context, const char* /*server*/, pa_context_flags_t /*flags*/,
                       const pa_spawn_api* /*spawning*/) {
    return context->answer;
}
pa_context_state_t pa_context_get_state(const pa_context* context) {
    return context->state;
}
int pa_context_errno(const pa_context* context) {
    return context->error;
}
const char* pa_strerror(int error) {
    static std::string text;
    text = "made up " + std::to_string(error);
    return text.c_str();
}
void pa_context_disconnect(pa_context* /*context*/) {
}
pa_stream* pa_stream_new(pa_context* context, const char* /*name*/, const pa_sample_spec* spec,
                         const pa_channel_map* /*map*/) {
    return newStream(context, spec);
}
pa_stream* pa_stream_new_extended(pa_context* context, const char* /*name*/,
                                  pa_format_info* const* /*formats*/, unsigned /*count*/,
                                  pa_proplist* /*properties*/) {
    return newStream(context, nullptr);
}
pa_stream* pa_stream_ref(pa_stream* stream) {
    ++stream->references;
    return stream;
}
void pa_stream_unref(pa_stream* stream) {
    // A stream that is connected is its context's too; tests delete what they make.
    --stream->references;
}
pa_stream_state_t pa_stream_get_state(const pa_stream* stream) {
    return stream->state;
}
pa_context* pa_stream_get_context(const pa_stream* stream) {
    return stream->context;
}
const pa_sample_spec* pa_stream_get_sample_spec(pa_stream* stream) {
    return &stream->spec;
}
const pa_channel_map* pa_stream_get_channel_map(pa_stream* /*stream*/) {
    return nullptr;
}
const pa_buffer_attr* pa_stream_get_buffer_attr(pa_stream* stream) {
    return stream->state == PA_STREAM_READY ? &stream->attributes : nullptr;
}
const pa_format_info* pa_stream_get_format_info(const pa_stream* stream) {
    return &stream->format;
}
const char* pa_proplist_gets(const pa_proplist* /*properties*/, const char* /*key*/) {
    return nullptr;
}
int pa_stream_connect_playback(pa_stream* stream, const char* /*device*/,
                               const pa_buffer_attr* /*attributes*/, pa_stream_flags_t /*flags*/,
                               const pa_cvolume* /*volume*/, pa_stream* /*synchronous*/) {
    return connect(stream);
}
int pa_stream_connect_record(pa_stream* stream, const char* /*device*/,
                             const pa_buffer_attr* /*attributes*/, pa_stream_flags_t /*flags*/) {
    return connect(stream);
}
int pa_stream_connect_upload(pa_stream* stream, std::size_t /*bytes*/) {
    return connect(stream);
}
int pa_stream_disconnect(pa_stream* stream) {
    stream->state = PA_STREAM_TERMINATED;
    return 0;
}
int pa_stream_begin_write(pa_stream* stream, void** block, std::size_t* bytes) {
    stream->block.resize(*bytes);
    *block = stream->block.data();
    stream->isBlockOut = true;
    return 0;
}
int pa_stream_cancel_write(pa_stream* stream) {
    stream->isBlockOut = false;
    return 0;
}
int pa_stream_write(pa_stream* stream, const void* samples, std::size_t bytes, pa_free_cb_t release,
                    std::int64_t /*offset*/, pa_seek_mode_t /*seek*/) {
    return take(stream, samples, bytes, release != nullptr);
}
int pa_stream_write_ext_free(pa_stream* stream, const void* samples, std::size_t bytes,
                             pa_free_cb_t release, void* /*released*/, std::int64_t /*offset*/,
                             pa_seek_mode_t /*seek*/) {
    return take(stream, samples, bytes, release != nullptr);
}
void pa_stream_set_started_callback(pa_stream* stream, pa_stream_notify_cb_t callback,
                                    void* context) {
    stream->started = callback;
    stream->startedContext = context;
}
void pa_stream_set_underflow_callback(pa_stream* stream, pa_stream_notify_cb_t callback,
                                      void* context) {
    stream->dry = callback;
    stream->dryContext = context;
}
pa_operation* pa_stream_cork(pa_stream* /*stream*/, int /*isCorked*/,
                             pa_stream_success_cb_t /*callback*/, void* /*context*/) {
    return kOperation;
}
pa_operation* pa_stream_update_sample_rate(pa_stream* stream, std::uint32_t rate,
                                           pa_stream_success_cb_t /*callback*/, void* /*context*/) {
    stream->spec.rate = rate;
    return kOperation;
}
pa_operation* pa_stream_flush(pa_stream* /*stream*/, pa_stream_success_cb_t /*callback*/,
                              void* /*context*/) {
    return kOperation;
}
pa_operation* pa_stream_drain(pa_stream* /*stream*/, pa_stream_success_cb_t /*callback*/,
                              void* /*context*/) {
    return kOperation;
}
pa_operation* pa_stream_trigger(pa_stream* /*stream*/, pa_stream_success_cb_t /*callback*/,
                                void* /*context*/) {
    return kOperation;
}
pa_operation* pa_stream_prebuf(pa_stream* /*stream*/, pa_stream_success_cb_t /*callback*/,
                               void* /*context*/) {
    return kOperation;
}

}  // extern "C"
