#pragma once

#include <jack/jack.h>
#include <jack/thread.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bridges/core/LibraryOf.h"
#include "bridges/core/PortGroup.h"
#include "bridges/core/StreamTable.h"
#include "common/ForkLocks.h"

namespace tq::bridges {

/// One client of the program, as far as it plays.
struct JackClient {
    /// What stands in for a process callback or a process thread. The library may call it until
    /// the client is closed, so it stays as it is.
    struct Callback {
        JackClient* client;
        JackProcessCallback process;
        JackThreadCallback thread;
        void* argument;
    };

    /// The same for what is told of another sample rate; `changed` is null where the program does
    /// not want to know.
    struct RateCallback {
        jack_client_t* client;
        JackSampleRateCallback changed;
        void* argument;
    };

    explicit JackClient(jack_client_t* itsHandle) : handle(itsHandle), ports("jack") {}

    jack_client_t* handle;
    PortGroup ports;
    std::vector<std::unique_ptr<Callback>> callbacks;
    std::vector<std::unique_ptr<RateCallback>> rateCallbacks;
    bool isActive = false;
    std::string name;       ///< since its activation
    double sampleRate = 0;  ///< frames a second, since the same
    // The process thread's.
    std::size_t cycleFrames = 0;  ///< of a program with a process thread of its own
};

/// What is asked of the program's own copy of the library.
struct JackLibrary {
    decltype(&jack_get_client_name) clientName;
    decltype(&jack_get_sample_rate) sampleRate;
    decltype(&jack_set_sample_rate_callback) setRateCallback;
    /// Ports that the program does not ask for in a cycle play nothing in it, and to ask for them
    /// would make them play.
    bool isSilentUnlessAsked;

    explicit JackLibrary(const void* known);
    [[nodiscard]] bool isComplete() const {
        return clientName != nullptr && sampleRate != nullptr && setRateCallback != nullptr;
    }
    /// Of the copy that the first call went to.
    static const JackLibrary& of(const void* known);
};

/// All clients. The library's functions are never called with the lock held: they wait for threads
/// of the program's.
class JackClients {
  public:
    /// Made on first use, never destroyed.
    static JackClients& shared();

    // [host thread] Throw std::bad_alloc, after which the client is not recorded or not all of it.

    JackClient::Callback* addCallback(jack_client_t* handle, JackProcessCallback process,
                                      JackThreadCallback thread, void* argument);
    JackClient::RateCallback* addRateCallback(jack_client_t* handle, JackSampleRateCallback changed,
                                              void* argument);
    [[nodiscard]] bool hasRateCallback(jack_client_t* handle);
    /// The server plays at another rate from now on.
    void rateChanged(jack_client_t* handle, double sampleRate);
    void addPort(jack_client_t* handle, jack_port_t* port);
    void removePort(jack_client_t* handle, jack_port_t* port);
    void activate(jack_client_t* handle, const JackLibrary& library);
    void deactivate(jack_client_t* handle);
    /// Its handle is about to become invalid. The client has to live until its callbacks are over.
    /// Null for one that is not known.
    [[nodiscard]] std::unique_ptr<JackClient> take(jack_client_t* handle);

    /// [any thread] [real-time safe] Null for ports that are not recorded.
    [[nodiscard]] OutputPort* port(const jack_port_t* handle) const noexcept {
        return ports_.find(handle);
    }

  private:
    JackClients() = default;
    JackClient& client(jack_client_t* handle);

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::NativeStreams, lock_};
    std::map<jack_client_t*, std::unique_ptr<JackClient>> clients_;
    StreamTable<OutputPort> ports_;
};

}  // namespace tq::bridges
