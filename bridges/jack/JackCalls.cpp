// JACK: a client's output ports are one stream, from its activation on. The process callback is the
// writer; what it has put into the ports is read, and changed where it is, before JACK goes on.

#include <jack/jack.h>
#include <jack/thread.h>

#include <string_view>

#include "bridges/core/CallDepth.h"
#include "bridges/core/LibraryOf.h"
#include "bridges/core/NativeApi.h"
#include "bridges/core/WithoutThrowing.h"
#include "bridges/jack/JackClients.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Callback = JackClient::Callback;
using GetBuffer = void* (*)(jack_port_t*, jack_nframes_t);

/// The library's own jack_port_get_buffer, known from the program's first call. Both are published
/// by themselves: readers on process threads need nothing else.
std::atomic<GetBuffer> libraryGetBuffer{nullptr};
std::atomic<bool> isSilentUnlessAsked{false};

/// The client whose process thread the calling thread is.
JackClient*& clientOfThread() noexcept {
    // In the library itself, so that the first use on a thread allocates nothing.
    [[gnu::tls_model("initial-exec")]] static thread_local JackClient* client = nullptr;
    return client;
}

template <class Original>
const JackLibrary& knownLibraryOf(Original* original) {
    const auto& library = libraryOf<JackLibrary>(original);
    isSilentUnlessAsked.store(library.isSilentUnlessAsked, std::memory_order_relaxed);
    return library;
}

float* memoryOf(const void* port, std::size_t frames) {
    auto* const handle = static_cast<jack_port_t*>(const_cast<void*>(port));
    const GetBuffer get = libraryGetBuffer.load(std::memory_order_relaxed);
    return get == nullptr ? nullptr
                          : static_cast<float*>(get(handle, static_cast<jack_nframes_t>(frames)));
}

/// The program has filled its ports.
void played(JackClient& client, std::size_t frames) noexcept {
    client.ports.played(frames,
                        isSilentUnlessAsked.load(std::memory_order_relaxed) ? nullptr : &memoryOf);
}

int process(jack_nframes_t frames, void* argument) {
    const auto& own = *static_cast<const Callback*>(argument);
    const int result = own.process(frames, own.argument);
    played(*own.client, frames);
    return result;
}

void* runThread(void* argument) {
    const auto& own = *static_cast<const Callback*>(argument);
    clientOfThread() = own.client;
    return own.thread(own.argument);
}

int rateChanged(jack_nframes_t sampleRate, void* argument) {
    const auto& own = *static_cast<const JackClient::RateCallback*>(argument);
    withoutThrowing([&] { JackClients::shared().rateChanged(own.client, sampleRate); });
    return own.changed == nullptr ? 0 : own.changed(sampleRate, own.argument);
}

/// A client hears of another rate only where it asks for it, so ours asks where the program does
/// not.
void askForRate(jack_client_t* client, const JackLibrary& library) {
    if (library.isComplete() && !JackClients::shared().hasRateCallback(client)) {
        (void)library.setRateCallback(
            client, &rateChanged, JackClients::shared().addRateCallback(client, nullptr, nullptr));
    }
}

constexpr tqhook::HookTable kHooks{
    tqhook::hook<&jack_set_process_callback>(
        [](auto* original, jack_client_t* client, JackProcessCallback callback, void* argument) {
            const CallDepth depth;
            Callback* const ours =
                callback == nullptr || !depth.isOutermost() ? nullptr : withoutThrowing([&] {
                    return JackClients::shared().addCallback(client, callback, nullptr, argument);
                });
            return ours == nullptr ? original(client, callback, argument)
                                   : original(client, &process, ours);
        }),
    tqhook::hook<&jack_set_process_thread>(
        [](auto* original, jack_client_t* client, JackThreadCallback thread, void* argument) {
            const CallDepth depth;
            Callback* const ours =
                thread == nullptr || !depth.isOutermost() ? nullptr : withoutThrowing([&] {
                    return JackClients::shared().addCallback(client, nullptr, thread, argument);
                });
            return ours == nullptr ? original(client, thread, argument)
                                   : original(client, &runThread, ours);
        }),
    tqhook::hook<&jack_set_sample_rate_callback>(
        [](auto* original, jack_client_t* client, JackSampleRateCallback changed, void* argument) {
            const CallDepth depth;
            auto* const ours = !depth.isOutermost() ? nullptr : withoutThrowing([&] {
                return JackClients::shared().addRateCallback(client, changed, argument);
            });
            return ours == nullptr ? original(client, changed, argument)
                                   : original(client, &rateChanged, ours);
        }),
    tqhook::hook<&jack_cycle_wait>([](auto* original, jack_client_t* client) {
        const jack_nframes_t frames = original(client);
        if (JackClient* const own = clientOfThread(); own != nullptr && own->handle == client) {
            own->cycleFrames = frames;
        }
        return frames;
    }),
    tqhook::hook<&jack_cycle_signal>([](auto* original, jack_client_t* client, int status) {
        if (JackClient* const own = clientOfThread(); own != nullptr && own->handle == client) {
            played(*own, own->cycleFrames);
        }
        original(client, status);
    }),
    tqhook::hook<&jack_port_get_buffer>(
        [](auto* original, jack_port_t* port, jack_nframes_t frames) {
            void* const memory = original(port, frames);
            libraryGetBuffer.store(original, std::memory_order_relaxed);
            if (OutputPort* const own = JackClients::shared().port(port)) {
                own->fetched.store(static_cast<float*>(memory), std::memory_order_release);
            }
            return memory;
        }),
    tqhook::hook<&jack_port_register>([](auto* original, jack_client_t* client, const char* name,
                                         const char* type, unsigned long flags,
                                         unsigned long bufferSize) {
        const CallDepth depth;
        jack_port_t* const port = original(client, name, type, flags, bufferSize);
        const bool isAudio = type != nullptr && std::string_view(type) == JACK_DEFAULT_AUDIO_TYPE;
        if (port != nullptr && isAudio && (flags & JackPortIsOutput) != 0 && depth.isOutermost()) {
            withoutThrowing([&] { JackClients::shared().addPort(client, port); });
        }
        return port;
    }),
    tqhook::hook<&jack_port_unregister>(
        [](auto* original, jack_client_t* client, jack_port_t* port) {
            // Before the handle can come back.
            withoutThrowing([&] { JackClients::shared().removePort(client, port); });
            return original(client, port);
        }),
    tqhook::hook<&jack_activate>([](auto* original, jack_client_t* client) {
        const CallDepth depth;
        // Before: the process thread plays before the call returns.
        withoutThrowing([&] {
            const JackLibrary& library = knownLibraryOf(original);
            askForRate(client, library);
            JackClients::shared().activate(client, library);
        });
        const int result = original(client);
        if (result != 0) {
            withoutThrowing([&] { JackClients::shared().deactivate(client); });
        }
        return result;
    }),
    tqhook::hook<&jack_deactivate>([](auto* original, jack_client_t* client) {
        const int result = original(client);
        withoutThrowing([&] { JackClients::shared().deactivate(client); });
        return result;
    }),
    tqhook::hook<&jack_client_close>([](auto* original, jack_client_t* client) {
        const auto own = withoutThrowing([&] { return JackClients::shared().take(client); });
        // Its process thread ends in there.
        return original(client);
    }),
};

}  // namespace

NativeApi jackApi() {
    static const auto rows = kHooks.rows();
    return {"jack", rows};
}

}  // namespace tq::bridges
