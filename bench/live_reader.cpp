// live_reader NAME: says when each impulse of a source arrives in a client of PipeWire that keeps
// nothing for itself: a line of seconds of the monotonic clock, as soon as the server brings it.

#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <span>

namespace {

constexpr float kLoud = 0.25F;
constexpr double kApart = 0.1;
constexpr std::uint32_t kRate = 48000;

struct Reader {
    pw_stream* stream = nullptr;
    double last = 0;
};

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void process(void* data) {
    auto& reader = *static_cast<Reader*>(data);
    pw_buffer* const buffer = pw_stream_dequeue_buffer(reader.stream);
    if (buffer == nullptr) {
        return;
    }
    const spa_data& sound = buffer->buffer->datas[0];
    const std::span samples(static_cast<const float*>(sound.data),
                            sound.chunk->size / sizeof(float));
    const bool isLoud =
        std::any_of(samples.begin(), samples.end(), [](float sample) { return sample > kLoud; });
    if (const double time = now(); isLoud && time - reader.last > kApart) {
        reader.last = time;
        std::printf("%.6f\n", time);
        std::fflush(stdout);
    }
    pw_stream_queue_buffer(reader.stream, buffer);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: live_reader NAME\n");
        return 2;
    }
    pw_init(&argc, &argv);
    pw_main_loop* const loop = pw_main_loop_new(nullptr);
    static const pw_stream_events kEvents = [] {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.process = process;
        return events;
    }();
    Reader reader;
    reader.stream = pw_stream_new_simple(
        pw_main_loop_get_loop(loop), "live_reader",
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Capture",
                          PW_KEY_TARGET_OBJECT, argv[1], PW_KEY_NODE_LATENCY, "240/48000", nullptr),
        &kEvents, &reader);
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = kRate;
    format.channels = 1;
    std::array<std::uint8_t, 1024> bytes{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, bytes.data(), bytes.size());
    const spa_pod* parameter = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    if (reader.stream == nullptr ||
        pw_stream_connect(
            reader.stream, PW_DIRECTION_INPUT, PW_ID_ANY,
            static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                         PW_STREAM_FLAG_RT_PROCESS),
            &parameter, 1) < 0) {
        std::fprintf(stderr, "live_reader: no stream\n");
        return 1;
    }
    pw_main_loop_run(loop);
    return 0;
}
