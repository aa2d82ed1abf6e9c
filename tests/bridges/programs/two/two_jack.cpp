#include <jack/jack.h>

#include <atomic>

#include "TwoStreams.h"

namespace {

struct Client {
    jack_port_t* port = nullptr;
    std::atomic<bool> mayBegin{false};
    std::atomic<std::size_t> at{0};  ///< frames of the sound that are played
};

int process(jack_nframes_t frames, void* user) {
    auto& client = *static_cast<Client*>(user);
    auto* const block = static_cast<float*>(jack_port_get_buffer(client.port, frames));
    const bool plays = client.mayBegin;
    const std::size_t at = client.at;
    for (std::size_t i = 0; i < frames; ++i) {
        block[i] = plays ? twostreams::sampleAt(at + i) : 0;
    }
    client.at = plays ? at + frames : 0;
    return 0;
}

bool play(const char* name) {
    Client client;
    jack_client_t* const jack = jack_client_open(name, JackNoStartServer, nullptr);
    if (jack == nullptr) {
        return false;
    }
    jack_set_process_callback(jack, process, &client);
    client.port = jack_port_register(jack, "out", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    if (client.port == nullptr || jack_activate(jack) != 0) {
        return false;
    }
    constexpr std::chrono::milliseconds kLook{2};
    while (jack_port_connected(client.port) == 0) {
        std::this_thread::sleep_for(kLook);
    }
    client.mayBegin = true;
    while (client.at < 2 * std::size_t{twostreams::kRate}) {
        std::this_thread::sleep_for(kLook);
    }
    return jack_client_close(jack) == 0;
}

}  // namespace

int main() {
    return twostreams::playTwo(play);
}
