#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// What the recorder and the program that holds its live sources say to each other, over one socket
// of packets. Both come from one build and run on one machine.

namespace tqrecorder {

enum class LiveKind : std::uint32_t {
    kOpen,       ///< a source; payload: its name and its description, each ended by a zero
    kSound,      ///< payload: frames of floats
    kClose,      ///< the source goes
    kReady,      ///< from the holder: the server answers; payload: what it calls itself
    kElsewhere,  ///< from the holder: this server stands for one that another holder serves better
    kRefused,    ///< from the holder: there will be no such source; payload: why
    kFailed,     ///< from the holder, which ends then; payload: why
};

struct LiveHeader {
    LiveKind kind = LiveKind::kSound;
    std::uint32_t source = 0;
    std::uint32_t sampleRate = 0;   ///< Hz
    std::uint32_t channels = 0;     ///< at most kMostLiveChannels
    std::uint32_t blockFrames = 0;  ///< that come at a time
};

inline constexpr std::uint32_t kMostLiveChannels = 8;
/// More would not go into a socket at once where its size is the usual one.
inline constexpr std::size_t kMostLivePayload = 16384;
/// The holder finds the socket there.
inline constexpr int kLiveSocket = 3;

enum class LiveSent { kDone, kFull, kGone };

/// [host thread] Never waits.
[[nodiscard]] LiveSent sendLive(int socket, const LiveHeader& header,
                                std::span<const std::byte> payload);

/// Takes packets from a socket. [one host thread at a time]
class LiveReceiver {
  public:
    enum class Got { kPacket, kNothing, kEnd };

    /// Never waits. kEnd where the other side has gone.
    [[nodiscard]] Got next(int socket);
    [[nodiscard]] const LiveHeader& header() const { return header_; }
    /// Valid until the next call.
    [[nodiscard]] std::span<const std::byte> payload() const {
        return std::span(buffer_).first(bytes_);
    }

  private:
    LiveHeader header_;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(kMostLivePayload);
    std::size_t bytes_ = 0;
};

}  // namespace tqrecorder
