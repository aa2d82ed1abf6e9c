// Plays a file of interleaved 32-bit floats through a pw_filter, a channel a port, on the sink
// "cap", as soon as it is linked to it, and leaves when it is played:
//
//     pipewire_filter_player FILE CHANNELS [simple] [queue] [gaps]
//
// "simple" makes the filter with pw_filter_new_simple(); "queue" takes and queues buffers instead
// of asking for the memory; "gaps" leaves the second port out in every second cycle.

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kMostPorts = 16;
constexpr std::array<const char*, 2> kInputs{"playback_FL", "playback_FR"};

struct Player {
    std::set<std::string> options;
    std::vector<float> samples;  ///< interleaved
    std::size_t channels = 0;
    pw_thread_loop* loop = nullptr;
    pw_core* core = nullptr;
    pw_filter* filter = nullptr;
    spa_hook listener{};
    std::array<void*, kMostPorts> ports{};
    std::array<spa_hook, kInputs.size()> links{};
    std::size_t activeLinks = 0;  ///< the thread loop's lock
    std::atomic<bool> mayBegin{false};
    std::atomic<std::size_t> at{0};  ///< frames that are played; grows by silence at the end
    std::atomic<std::size_t> block{0};

    [[nodiscard]] std::size_t frames() const { return samples.size() / channels; }
};

void fill(const Player& player, std::size_t channel, std::size_t at, float* block,
          std::size_t frames, bool plays) {
    for (std::size_t i = 0; i < frames; ++i) {
        const std::size_t sample = (at + i) * player.channels + channel;
        block[i] = plays && sample < player.samples.size() ? player.samples[sample] : 0;
    }
}

// A port has no memory while it is not linked.

void playAsked(const Player& player, std::size_t channel, std::size_t frames, bool plays) {
    auto* const block = static_cast<float*>(
        pw_filter_get_dsp_buffer(player.ports[channel], static_cast<std::uint32_t>(frames)));
    if (block != nullptr) {
        fill(player, channel, player.at, block, frames, plays);
    }
}

void playQueued(const Player& player, std::size_t channel, std::size_t frames, bool plays) {
    pw_buffer* const buffer = pw_filter_dequeue_buffer(player.ports[channel]);
    if (buffer == nullptr) {
        return;
    }
    const spa_data& data = buffer->buffer->datas[0];
    fill(player, channel, player.at, static_cast<float*>(data.data), frames, plays);
    *data.chunk = {.offset = 0,
                   .size = static_cast<std::uint32_t>(frames * sizeof(float)),
                   .stride = sizeof(float),
                   .flags = 0};
    pw_filter_queue_buffer(player.ports[channel], buffer);
}

void process(void* user, spa_io_position* position) {
    auto& player = *static_cast<Player*>(user);
    const std::size_t frames = position->clock.duration;
    const bool plays = player.mayBegin;
    const auto play = player.options.contains("queue") ? &playQueued : &playAsked;
    const bool isGap = player.options.contains("gaps") && player.at / frames % 2 == 1;
    for (std::size_t channel = 0; channel < (isGap ? 1 : player.channels); ++channel) {
        play(player, channel, frames, plays);
    }
    player.block = frames;
    if (plays) {
        player.at += frames;
    }
}

void linkChanged(void* user, const pw_link_info* info) {
    auto& player = *static_cast<Player*>(user);
    if (info->state == PW_LINK_STATE_ACTIVE &&
        (info->change_mask & PW_LINK_CHANGE_MASK_STATE) != 0) {
        ++player.activeLinks;
        pw_thread_loop_signal(player.loop, false);
    }
}

pw_properties* nodeProperties() {
    return pw_properties_new(PW_KEY_NODE_NAME, "filterplayer", PW_KEY_MEDIA_TYPE, "Audio",
                             PW_KEY_MEDIA_CATEGORY, "Playback", nullptr);
}

void makeFilter(Player& player) {
    static constexpr pw_filter_events kEvents = [] {
        pw_filter_events events{};
        events.version = PW_VERSION_FILTER_EVENTS;
        events.process = &process;
        return events;
    }();
    if (player.options.contains("simple")) {
        player.filter = pw_filter_new_simple(pw_thread_loop_get_loop(player.loop), "noise",
                                             nodeProperties(), &kEvents, &player);
    } else {
        player.filter = pw_filter_new(player.core, "noise", nodeProperties());
        pw_filter_add_listener(player.filter, &player.listener, &kEvents, &player);
    }
    for (std::size_t channel = 0; channel < player.channels; ++channel) {
        const std::string name = "out_" + std::to_string(channel + 1);
        player.ports[channel] = pw_filter_add_port(
            player.filter, PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(int),
            pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME,
                              name.c_str(), nullptr),
            nullptr, 0);
    }
}

/// The node is another client's where the filter made its own connection.
void link(Player& player, std::size_t channel) {
    static constexpr pw_link_events kEvents = [] {
        pw_link_events events{};
        events.version = PW_VERSION_LINK_EVENTS;
        events.info = &linkChanged;
        return events;
    }();
    const std::string node = std::to_string(pw_filter_get_node_id(player.filter));
    const std::string port = "out_" + std::to_string(channel + 1);
    pw_properties* const properties = pw_properties_new(
        PW_KEY_LINK_OUTPUT_NODE, node.c_str(), PW_KEY_LINK_OUTPUT_PORT, port.c_str(),
        PW_KEY_LINK_INPUT_NODE, "cap", PW_KEY_LINK_INPUT_PORT, kInputs[channel], nullptr);
    auto* const made = static_cast<pw_proxy*>(
        pw_core_create_object(player.core, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK,
                              &properties->dict, 0));
    pw_properties_free(properties);
    pw_proxy_add_object_listener(made, &player.links[channel], &kEvents, &player);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        return 2;
    }
    Player player;
    player.options = {arguments + 3, arguments + count};
    player.channels = static_cast<std::size_t>(std::atoi(arguments[2]));
    std::ifstream file(arguments[1], std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    player.samples.resize(bytes.size() / sizeof(float));
    std::copy_n(bytes.data(), player.samples.size() * sizeof(float),
                reinterpret_cast<char*>(player.samples.data()));
    if (player.samples.empty() || player.channels > kMostPorts) {
        return 1;
    }
    pw_init(nullptr, nullptr);
    player.loop = pw_thread_loop_new("player", nullptr);
    pw_context* const context = pw_context_new(pw_thread_loop_get_loop(player.loop), nullptr, 0);
    pw_thread_loop_lock(player.loop);
    pw_thread_loop_start(player.loop);
    player.core = pw_context_connect(context, nullptr, 0);
    if (player.core == nullptr) {
        return 1;
    }
    makeFilter(player);
    if (pw_filter_connect(player.filter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) < 0) {
        return 1;
    }
    while (pw_filter_get_state(player.filter, nullptr) < PW_FILTER_STATE_PAUSED) {
        pw_thread_loop_timed_wait(player.loop, 1);
    }
    // The sink has two ports.
    const std::size_t linked = std::min(player.channels, kInputs.size());
    for (std::size_t channel = 0; channel < linked; ++channel) {
        link(player, channel);
    }
    while (player.activeLinks < linked) {
        pw_thread_loop_wait(player.loop);
    }
    player.mayBegin = true;
    while (player.at <= player.frames() + 4 * player.block) {
        pw_thread_loop_timed_wait(player.loop, 1);
    }
    pw_filter_destroy(player.filter);
    pw_core_disconnect(player.core);
    pw_thread_loop_unlock(player.loop);
    pw_thread_loop_stop(player.loop);
    pw_context_destroy(context);
    pw_thread_loop_destroy(player.loop);
    pw_deinit();
    return 0;
}
