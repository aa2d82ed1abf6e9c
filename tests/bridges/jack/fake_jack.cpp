#include <algorithm>
#include <cerrno>
#include <cstring>

#include "bridges/jack/FakeJack.h"

// What libjack exports, as far as the bridge and its tests call it.

namespace {

constexpr std::size_t kMostFrames = 16384;

bool isOutput(const _jack_port& port) {
    return (port.flags & JackPortIsOutput) != 0 && port.type == JACK_DEFAULT_AUDIO_TYPE;
}

void endCycle(_jack_client& client, int result) {
    for (std::size_t frame = 0; frame < client.frames; ++frame) {
        for (const auto& port : client.ports) {
            if (isOutput(*port)) {
                client.heard.push_back(port->memory[frame]);
            }
        }
    }
    client.results.push_back(result);
}

int answer(const _jack_client& client) {
    errno = client.answer == 0 ? errno : ENXIO;
    return client.answer;
}

}  // namespace

extern "C" {

void fake_jack_cycle(jack_client_t* client, jack_nframes_t frames) {
    const std::scoped_lock guard(client->cycle);
    if (!client->isActive) {
        return;
    }
    client->frames = frames;
    endCycle(*client, client->process(frames, client->processArgument));
}

void fake_jack_rate(jack_client_t* client, jack_nframes_t rate) {
    client->sampleRate = rate;
    if (client->rateChanged != nullptr) {
        client->rateChanged(rate, client->rateArgument);
    }
}

jack_client_t* jack_client_open(const char* name, jack_options_t /*options*/,
                                jack_status_t* /*status*/, ...) {
    auto client = std::make_unique<_jack_client>();
    client->name = name;
    return client.release();
}
int jack_client_close(jack_client_t* client) {
    const std::scoped_lock guard(client->cycle);
    client->isActive = false;
    // The test looks at it afterwards.
    client->isClosed = true;
    return answer(*client);
}
const char* jack_get_version_string() {
    return "1.0";
}
char* jack_get_client_name(jack_client_t* client) {
    return client->name.data();
}
jack_nframes_t jack_get_sample_rate(jack_client_t* client) {
    return client->sampleRate;
}
int jack_set_process_callback(jack_client_t* client, JackProcessCallback process, void* argument) {
    client->process = process;
    client->processArgument = argument;
    return answer(*client);
}
int jack_set_process_thread(jack_client_t* client, JackThreadCallback thread, void* argument) {
    client->thread = thread;
    client->threadArgument = argument;
    return answer(*client);
}
int jack_set_sample_rate_callback(jack_client_t* client, JackSampleRateCallback changed,
                                  void* argument) {
    client->rateChanged = changed;
    client->rateArgument = argument;
    // As the real one does.
    fake_jack_rate(client, client->sampleRate);
    return answer(*client);
}
jack_nframes_t jack_cycle_wait(jack_client_t* client) {
    client->frames = client->coming.empty() ? 0 : client->coming.front();
    if (!client->coming.empty()) {
        client->coming.pop_front();
    }
    return client->frames;
}
void jack_cycle_signal(jack_client_t* client, int status) {
    endCycle(*client, status);
}
jack_port_t* jack_port_register(jack_client_t* client, const char* /*name*/, const char* type,
                                unsigned long flags, unsigned long /*bufferSize*/) {
    if (answer(*client) != 0) {
        return nullptr;
    }
    client->ports.push_back(std::make_unique<_jack_port>());
    _jack_port& port = *client->ports.back();
    port.type = type;
    port.flags = flags;
    port.memory.resize(kMostFrames);
    return &port;
}
int jack_port_unregister(jack_client_t* client, jack_port_t* port) {
    const auto found = std::find_if(client->ports.begin(), client->ports.end(),
                                    [&](const auto& each) { return each.get() == port; });
    if (found == client->ports.end()) {
        errno = ENXIO;
        return -1;
    }
    client->ports.erase(found);
    return answer(*client);
}
void* jack_port_get_buffer(jack_port_t* port, jack_nframes_t /*frames*/) {
    ++port->asked;
    return port->hasMemory ? port->memory.data() : nullptr;
}
int jack_activate(jack_client_t* client) {
    client->isActive = client->answer == 0;
    return answer(*client);
}
int jack_deactivate(jack_client_t* client) {
    const std::scoped_lock guard(client->cycle);
    client->isActive = false;
    return answer(*client);
}

}  // extern "C"
