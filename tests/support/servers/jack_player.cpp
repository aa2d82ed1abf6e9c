// Plays a file of interleaved 32-bit floats through JACK, a channel a port, as soon as somebody
// listens, and leaves when it is played:
//
//     jack_player FILE CHANNELS [thread] [late] [more] [leave]
//
// "thread" plays from a process thread of its own instead of a process callback; "late" activates
// itself before it has ports; "more" has a further port, which is silent, in its third quarter;
// "leave" gives its last port back in the process callback, when half is played.

#include <jack/jack.h>
#include <jack/thread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kMostPorts = 16;

struct Player {
    jack_client_t* client = nullptr;
    std::vector<float> samples;  ///< interleaved
    std::size_t channels = 0;
    /// Written by the main thread, in order; the process thread sees those that are not null.
    std::array<std::atomic<jack_port_t*>, kMostPorts> ports{};
    std::atomic<jack_port_t*> further{nullptr};
    std::atomic<bool> mayBegin{false};
    bool leaves = false;             ///< constant while it plays
    std::atomic<std::size_t> at{0};  ///< frames that are played; grows by silence at the end

    [[nodiscard]] std::size_t frames() const { return samples.size() / channels; }
};

int process(jack_nframes_t frames, void* user) {
    auto& player = *static_cast<Player*>(user);
    const std::size_t at = player.at.load(std::memory_order_relaxed);
    const bool plays = player.mayBegin.load(std::memory_order_acquire);
    for (std::size_t channel = 0; channel < player.channels; ++channel) {
        jack_port_t* const port = player.ports[channel].load(std::memory_order_acquire);
        if (port == nullptr) {
            continue;
        }
        auto* block = static_cast<float*>(jack_port_get_buffer(port, frames));
        for (std::size_t i = 0; i < frames; ++i) {
            const std::size_t sample = (at + i) * player.channels + channel;
            block[i] = plays && sample < player.samples.size() ? player.samples[sample] : 0;
        }
    }
    if (jack_port_t* const port = player.further.load(std::memory_order_acquire)) {
        auto* block = static_cast<float*>(jack_port_get_buffer(port, frames));
        std::fill_n(block, frames, 0.0F);
    }
    if (player.leaves && at > player.frames() / 2) {
        if (jack_port_t* const port = player.ports[player.channels - 1].exchange(nullptr)) {
            jack_port_unregister(player.client, port);
        }
    }
    if (plays) {
        player.at.store(at + frames, std::memory_order_release);
    }
    return 0;
}

void* processThread(void* user) {
    auto& player = *static_cast<Player*>(user);
    while (true) {
        const jack_nframes_t frames = jack_cycle_wait(player.client);
        const int status = process(frames, user);
        jack_cycle_signal(player.client, status);
    }
    return nullptr;
}

jack_port_t* registerPort(const Player& player, const std::string& name) {
    return jack_port_register(player.client, name.c_str(), JACK_DEFAULT_AUDIO_TYPE,
                              JackPortIsOutput, 0);
}

void registerPorts(Player& player) {
    for (std::size_t channel = 0; channel < player.channels; ++channel) {
        player.ports[channel] = registerPort(player, "out_" + std::to_string(channel + 1));
    }
}

template <typename Condition>
void await(Condition condition) {
    while (!condition()) {
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) {
        return 2;
    }
    const std::set<std::string> options(arguments + 3, arguments + count);
    Player player;
    player.channels = static_cast<std::size_t>(std::atoi(arguments[2]));
    std::ifstream file(arguments[1], std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    player.samples.resize(bytes.size() / sizeof(float));
    std::copy_n(bytes.data(), player.samples.size() * sizeof(float),
                reinterpret_cast<char*>(player.samples.data()));
    player.leaves = options.contains("leave");
    player.client = jack_client_open("player", JackNoStartServer, nullptr);
    if (player.client == nullptr || player.samples.empty() || player.channels > kMostPorts) {
        return 1;
    }
    if (options.contains("thread")) {
        jack_set_process_thread(player.client, processThread, &player);
    } else {
        jack_set_process_callback(player.client, process, &player);
    }
    if (!options.contains("late")) {
        registerPorts(player);
    }
    if (jack_activate(player.client) != 0) {
        return 1;
    }
    if (options.contains("late")) {
        registerPorts(player);
    }
    // The recorder takes two ports.
    await([&] {
        return std::all_of(player.ports.begin(),
                           player.ports.begin() + static_cast<std::ptrdiff_t>(
                                                      std::min<std::size_t>(player.channels, 2)),
                           [](jack_port_t* port) { return jack_port_connected(port) != 0; });
    });
    player.mayBegin = true;
    if (options.contains("more")) {
        await([&] { return player.at > player.frames() / 2; });
        player.further = registerPort(player, "further");
        await([&] { return player.at > player.frames() * 3 / 4; });
        jack_port_t* const port = player.further.exchange(nullptr);
        // The cycle that may still have it is over then.
        const std::size_t now = player.at;
        await([&] { return player.at > now + 2 * jack_get_buffer_size(player.client); });
        jack_port_unregister(player.client, port);
    }
    await([&] { return player.at > player.frames() + 4 * jack_get_buffer_size(player.client); });
    return jack_client_close(player.client);
}
