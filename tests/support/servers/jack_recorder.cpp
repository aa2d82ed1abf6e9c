// Writes what the first two output ports of other clients play, interleaved, to standard output.
// Silence where none is connected.
//
//     jack_recorder [CLIENT]
//
// With CLIENT those of the client of that name alone.

#include <jack/jack.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kChannels = 2;
/// A minute: longer than any sound of a test.
constexpr std::size_t kRoom = 60 * 48000;

struct Recorder {
    std::array<jack_port_t*, kChannels> ports{};
    std::vector<float> samples = std::vector<float>(kRoom * kChannels);
    /// Frames in `samples`. Written by JACK's thread (release) behind the frames themselves, read
    /// by the main thread (acquire).
    std::atomic<std::size_t> frames{0};
};

int process(jack_nframes_t frames, void* user) {
    auto& recorder = *static_cast<Recorder*>(user);
    const std::size_t at = recorder.frames.load(std::memory_order_relaxed);
    if (at + frames > kRoom) {
        return 0;
    }
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        const auto* block =
            static_cast<const float*>(jack_port_get_buffer(recorder.ports[channel], frames));
        for (std::size_t i = 0; i < frames; ++i) {
            recorder.samples[(at + i) * kChannels + channel] = block[i];
        }
    }
    recorder.frames.store(at + frames, std::memory_order_release);
    return 0;
}

void connectWhoPlays(jack_client_t* client, const Recorder& recorder, const char* wanted) {
    const char** outputs =
        jack_get_ports(client, wanted, JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
    std::size_t channel = 0;
    for (std::size_t i = 0; outputs != nullptr && outputs[i] != nullptr && channel < kChannels;
         ++i) {
        if (std::string(outputs[i]).starts_with("system:")) {
            continue;
        }
        jack_port_t* port = recorder.ports[channel++];
        if (jack_port_connected(port) == 0) {
            jack_connect(client, outputs[i], jack_port_name(port));
        }
    }
    jack_free(outputs);
}

}  // namespace

int main(int count, char** arguments) {
    const std::string wanted = count > 1 ? "^" + std::string(arguments[1]) + ":" : "";
    jack_client_t* client = jack_client_open("recorder", JackNoStartServer, nullptr);
    if (client == nullptr) {
        return 1;
    }
    Recorder recorder;
    recorder.ports[0] =
        jack_port_register(client, "in_1", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    recorder.ports[1] =
        jack_port_register(client, "in_2", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    jack_set_process_callback(client, process, &recorder);
    if (jack_activate(client) != 0) {
        return 1;
    }
    // Until it is killed.
    for (std::size_t written = 0;; std::this_thread::sleep_for(std::chrono::milliseconds{2})) {
        connectWhoPlays(client, recorder, wanted.empty() ? nullptr : wanted.c_str());
        const std::size_t frames = recorder.frames.load(std::memory_order_acquire);
        std::fwrite(&recorder.samples[written * kChannels], sizeof(float) * kChannels,
                    frames - written, stdout);
        std::fflush(stdout);
        written = frames;
    }
}
