#include "JackWatch.h"

#include <dlfcn.h>
#include <jack/jack.h>

#include <utility>

namespace tqcubeb {

/// Invariant: `library_` is open as long as `client_` is. JACK calls `gone_` on a thread that ends
/// with the client.
class JackWatch::Client {
  public:
    Client(const char* application, std::function<void()> gone) : gone_(std::move(gone)) {
        // It is the one that the sound library has loaded: nothing here depends on it.
        library_.reset(dlopen("libjack.so.0", RTLD_LAZY | RTLD_LOCAL));
        const auto open = call<decltype(&jack_client_open)>("jack_client_open");
        const auto onShutdown = call<decltype(&jack_on_shutdown)>("jack_on_shutdown");
        close_ = call<decltype(&jack_client_close)>("jack_client_close");
        if (open != nullptr && onShutdown != nullptr && close_ != nullptr) {
            client_ = open(application, JackNoStartServer, nullptr);
        }
        if (client_ != nullptr) {
            onShutdown(
                client_, [](void* self) { static_cast<Client*>(self)->gone_(); }, this);
        }
    }
    ~Client() {
        if (client_ != nullptr) {
            close_(client_);
        }
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    [[nodiscard]] UInt32 period() const {
        const auto frames = call<decltype(&jack_get_buffer_size)>("jack_get_buffer_size");
        return client_ == nullptr || frames == nullptr ? 0 : frames(client_);
    }

  private:
    struct CloseLibrary {
        void operator()(void* library) const noexcept { dlclose(library); }
    };

    template <class Call>
    [[nodiscard]] Call call(const char* name) const {
        return library_ == nullptr ? nullptr : reinterpret_cast<Call>(dlsym(library_.get(), name));
    }

    const std::function<void()> gone_;
    std::unique_ptr<void, CloseLibrary> library_;
    decltype(&jack_client_close) close_ = nullptr;
    jack_client_t* client_ = nullptr;
};

JackWatch::JackWatch(const char* application, std::function<void()> gone)
    : client_(std::make_unique<Client>(application, std::move(gone))) {
}

JackWatch::~JackWatch() = default;

UInt32 JackWatch::period() const {
    return client_->period();
}

}  // namespace tqcubeb
