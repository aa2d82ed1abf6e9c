#include "bridges/jack/JackClients.h"

#include <cstring>

namespace tq::bridges {

JackLibrary::JackLibrary(const void* known)
    : clientName(functionBeside<decltype(jack_get_client_name)>(known, "jack_get_client_name")),
      sampleRate(functionBeside<decltype(jack_get_sample_rate)>(known, "jack_get_sample_rate")),
      setRateCallback(functionBeside<decltype(jack_set_sample_rate_callback)>(
          known, "jack_set_sample_rate_callback")),
      isSilentUnlessAsked(false) {
    auto* const version =
        functionBeside<decltype(jack_get_version_string)>(known, "jack_get_version_string");
    const char* const text = version == nullptr ? nullptr : version();
    isSilentUnlessAsked = text != nullptr && std::strstr(text, "PipeWire") != nullptr;
}

const JackLibrary& JackLibrary::of(const void* known) {
    static const JackLibrary library(known);
    return library;
}

JackClients& JackClients::shared() {
    static auto* const instance = new JackClients;
    return *instance;
}

JackClient& JackClients::client(jack_client_t* handle) {
    auto& found = clients_[handle];
    if (found == nullptr) {
        found = std::make_unique<JackClient>(handle);
    }
    return *found;
}

JackClient::Callback* JackClients::addCallback(jack_client_t* handle, JackProcessCallback process,
                                               JackThreadCallback thread, void* argument) {
    const std::scoped_lock guard(lock_);
    JackClient& known = client(handle);
    known.callbacks.push_back(std::make_unique<JackClient::Callback>(
        JackClient::Callback{&known, process, thread, argument}));
    return known.callbacks.back().get();
}

JackClient::RateCallback* JackClients::addRateCallback(jack_client_t* handle,
                                                       JackSampleRateCallback changed,
                                                       void* argument) {
    const std::scoped_lock guard(lock_);
    auto& known = client(handle).rateCallbacks;
    known.push_back(std::make_unique<JackClient::RateCallback>(
        JackClient::RateCallback{handle, changed, argument}));
    return known.back().get();
}

bool JackClients::hasRateCallback(jack_client_t* handle) {
    const std::scoped_lock guard(lock_);
    const auto found = clients_.find(handle);
    return found != clients_.end() && !found->second->rateCallbacks.empty();
}

void JackClients::rateChanged(jack_client_t* handle, double sampleRate) {
    const std::scoped_lock guard(lock_);
    const auto found = clients_.find(handle);
    if (found == clients_.end() || !found->second->isActive ||
        found->second->sampleRate == sampleRate) {
        return;
    }
    JackClient& known = *found->second;
    known.sampleRate = sampleRate;
    known.ports.start(sampleRate, known.name);
}

void JackClients::addPort(jack_client_t* handle, jack_port_t* port) {
    const std::scoped_lock guard(lock_);
    ports_.remove(port);
    ports_.add(port, client(handle).ports.add(port));
}

void JackClients::removePort(jack_client_t* handle, jack_port_t* port) {
    const std::scoped_lock guard(lock_);
    if (OutputPort* const known = ports_.find(port)) {
        ports_.remove(port);
        client(handle).ports.remove(*known);
    }
}

void JackClients::activate(jack_client_t* handle, const JackLibrary& library) {
    if (!library.isComplete()) {
        return;
    }
    const double rate = library.sampleRate(handle);
    const char* const name = library.clientName(handle);
    const std::scoped_lock guard(lock_);
    JackClient& known = client(handle);
    if (!known.isActive && !known.callbacks.empty()) {
        known.name = name == nullptr ? "" : name;
        known.ports.start(rate, known.name);
        known.sampleRate = rate;
        known.isActive = true;
    }
}

void JackClients::deactivate(jack_client_t* handle) {
    const std::scoped_lock guard(lock_);
    if (const auto found = clients_.find(handle); found != clients_.end()) {
        found->second->ports.stop();
        found->second->isActive = false;
    }
}

std::unique_ptr<JackClient> JackClients::take(jack_client_t* handle) {
    const std::scoped_lock guard(lock_);
    const auto found = clients_.find(handle);
    if (found == clients_.end()) {
        return nullptr;
    }
    std::unique_ptr<JackClient> taken = std::move(found->second);
    // Their handles may be other ports' as soon as the client is closed.
    taken->ports.visit([this](const OutputPort& port) { ports_.remove(port.handle); });
    clients_.erase(found);
    return taken;
}

}  // namespace tq::bridges
