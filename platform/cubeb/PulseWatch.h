#pragma once

#include <memory>
#include <string_view>

#include "device/HeardDevice.h"

namespace tqcubeb {

/// Whether it is what the speakers play, by the name that PulseAudio and PipeWire's service for it
/// give to each of these sources. The sound library's list says it of none.
[[nodiscard]] inline bool isMonitor(std::string_view source) noexcept {
    return source.ends_with(".monitor");
}

/// What PulseAudio, or PipeWire's service for it, says of the streams of this process: which sink
/// they play on, which source they hear, and in what formats. The sound library tells nothing of
/// it. On a connection of its own, with a thread of its own, which only takes news in: nobody
/// waits, and a server that stands still holds nobody up.
class PulseWatch {
  public:
    /// [host thread] Connects; does not wait. `application` is the name under which the streams
    /// were made.
    explicit PulseWatch(const char* application);
    ~PulseWatch();
    PulseWatch(const PulseWatch&) = delete;
    PulseWatch& operator=(const PulseWatch&) = delete;

    /// [any thread] By the last news; ends without a name before the first, and where this process
    /// has no stream.
    [[nodiscard]] tqplatform::HeardPlace place() const;
    /// [any thread] [real-time safe] By the last news: the server may move what listens to one when
    /// its microphone is unplugged.
    [[nodiscard]] bool hearsMonitor() const noexcept;

  private:
    class Connection;
    std::unique_ptr<Connection> connection_;
};

}  // namespace tqcubeb
