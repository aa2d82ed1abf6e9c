#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <functional>
#include <memory>

namespace tqcubeb {

/// Says when a JACK server has gone, which the sound library never hears, and how long its periods
/// are, of which that knows only what the ports add: through a client of its own, without ports and
/// never activated, so that it is in nobody's way. [host thread]
class JackWatch {
  public:
    /// `gone` is called on a thread of JACK's, and not behind the destructor. Where no client can
    /// be had nothing is said.
    JackWatch(const char* application, std::function<void()> gone);
    ~JackWatch();
    JackWatch(const JackWatch&) = delete;
    JackWatch& operator=(const JackWatch&) = delete;

    /// In frames at the server's rate; 0 where no client can be had.
    [[nodiscard]] UInt32 period() const;

  private:
    class Client;
    std::unique_ptr<Client> client_;
};

}  // namespace tqcubeb
