#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "device/HeardDevice.h"

namespace tqcubeb {

/// Whether it is no microphone but what programs play: a monitor of speakers, by the name that
/// PulseAudio and PipeWire's service for it give to each, or the recorder's live source. The sound
/// library's list says it of none.
[[nodiscard]] inline bool isOfPrograms(std::string_view source) noexcept {
    return source.ends_with(".monitor") || source.starts_with("tqaudiorecord.");
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
    /// [host thread] Which microphone is to be heard from here on, by its name; empty for any.
    void expect(const std::string& microphone);
    /// [any thread] [real-time safe] Whether it hears what it is not to, by the last news: another
    /// microphone than the named one, or, unasked, what programs play. The server may move it there
    /// when its microphone is unplugged.
    [[nodiscard]] bool mishears() const noexcept;

  private:
    class Connection;
    std::unique_ptr<Connection> connection_;
};

}  // namespace tqcubeb
