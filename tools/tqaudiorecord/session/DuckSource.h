#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tqrecorder {

class Microphone;

/// The level that decides when the host's own output is turned down. [one host thread at a time]
class DuckSource {
  public:
    virtual ~DuckSource() = default;
    /// dBFS at that time of the recording, RMS of about 20 ms.
    [[nodiscard]] virtual float level(std::uint64_t microseconds) = 0;
    /// Whether that is known to be silence at all times.
    [[nodiscard]] virtual bool isSilent() const { return false; }

    /// A sound file. Null with the reason in `error`.
    [[nodiscard]] static std::unique_ptr<DuckSource> open(const std::string& path,
                                                          std::string& error);
    /// What it hears at the moment. It outlives the source.
    [[nodiscard]] static std::unique_ptr<DuckSource> of(const Microphone& microphone);
};

}  // namespace tqrecorder
