#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <array>
#include <atomic>

#include "TwoStreams.h"

namespace {

struct Player {
    pw_stream* stream = nullptr;
    std::atomic<std::size_t> at{0};  ///< frames that are played
};

void process(void* user) {
    auto& player = *static_cast<Player*>(user);
    pw_buffer* const buffer = pw_stream_dequeue_buffer(player.stream);
    if (buffer == nullptr) {
        return;
    }
    constexpr std::size_t kFrameBytes = sizeof(float) * twostreams::kChannels;
    const spa_data& data = buffer->buffer->datas[0];
    const std::size_t room = data.maxsize / kFrameBytes;
    const std::size_t frames =
        buffer->requested == 0 ? room : std::min<std::size_t>(buffer->requested, room);
    auto* samples = static_cast<float*>(data.data);
    for (std::size_t i = 0; i < frames; ++i) {
        samples = std::fill_n(samples, twostreams::kChannels, twostreams::sampleAt(player.at + i));
    }
    *data.chunk = {.offset = 0,
                   .size = static_cast<std::uint32_t>(frames * kFrameBytes),
                   .stride = kFrameBytes,
                   .flags = 0};
    pw_stream_queue_buffer(player.stream, buffer);
    player.at += frames;
}

bool play(const char* name) {
    static constexpr pw_stream_events kEvents = [] {
        pw_stream_events events{};
        events.version = PW_VERSION_STREAM_EVENTS;
        events.process = &process;
        return events;
    }();
    Player player;
    pw_thread_loop* const loop = pw_thread_loop_new(name, nullptr);
    player.stream = pw_stream_new_simple(
        pw_thread_loop_get_loop(loop), name,
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", nullptr),
        &kEvents, &player);
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = twostreams::kRate;
    format.channels = twostreams::kChannels;
    format.position[0] = SPA_AUDIO_CHANNEL_FL;
    format.position[1] = SPA_AUDIO_CHANNEL_FR;
    std::array<std::uint8_t, 1024> room{};
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(room.data(), room.size());
    const spa_pod* parameter = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    const int flags =
        PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS;
    if (pw_stream_connect(player.stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                          static_cast<pw_stream_flags>(flags), &parameter, 1) < 0 ||
        pw_thread_loop_start(loop) < 0) {
        return false;
    }
    while (player.at < 2 * std::size_t{twostreams::kRate}) {
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
    pw_thread_loop_stop(loop);
    pw_stream_destroy(player.stream);
    pw_thread_loop_destroy(loop);
    return true;
}

}  // namespace

int main() {
    pw_init(nullptr, nullptr);
    const int failed = twostreams::playTwo(play);
    pw_deinit();
    return failed;
}
