#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/Descriptor.h"
#include "output/live/LivePackets.h"
#include "output/live/SilencePace.h"

namespace tqrecorder {

/// A text as the value of a property within a module's arguments, so that it arrives as it is.
[[nodiscard]] std::string propertyValue(const std::string& text);

/// One live source in PulseAudio: a pipe that the server reads as a microphone. What is written is
/// heard at once, at the recorded program's own pace.
class PulseSource {
  public:
    /// `pipe` is where the server makes it. `name` and `description` as in LiveName.
    PulseSource(const LiveHeader& header, std::string pipe, std::string name,
                std::string description);

    /// Of module-pipe-source.
    [[nodiscard]] std::string moduleArguments() const;
    /// The server has made the pipe. False when it cannot be opened.
    [[nodiscard]] bool open();
    /// Whether somebody listens: the server reads the pipe only then.
    void setRead(bool isRead);
    /// Frames of floats.
    void write(std::span<const std::byte> sound, SilencePace::Time now);
    /// Silence where there was nothing for a while.
    void fill(SilencePace::Time now);

    std::uint32_t module = kNone;
    std::uint32_t index = kNone;  ///< of the source in the server
    static constexpr std::uint32_t kNone = 0xFFFFFFFFU;

  private:
    void put(std::span<const std::byte> frames);
    void empty();

    std::uint32_t channels_;
    /// The server reads 4096 bytes at a time and wants whole frames in them: their size divides it.
    std::uint32_t pipeChannels_;
    std::uint32_t sampleRate_;
    std::string pipePath_;
    std::string name_;
    std::string description_;
    tqcommon::Descriptor pipe_;
    bool isRead_ = false;
    SilencePace pace_;
    std::vector<std::byte> wide_;
};

}  // namespace tqrecorder
