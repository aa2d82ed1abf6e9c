#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/Records.h"

namespace tqrecorder {

/// The user's microphone, heard in the recorder through the platform's own unit: in the host it
/// would look like one of the host's.
///
/// Invariant: blocks `read_` to `written_` and their frames are in the rings. Writer: the device's
/// thread, which publishes a block by releasing `written_`. Reader: take(), which gives room back
/// by releasing `read_`. [one host thread at a time] unless said otherwise
class Microphone {
  public:
    /// Hears nothing yet.
    Microphone() = default;
    ~Microphone() { stop(); }
    Microphone(const Microphone&) = delete;
    Microphone& operator=(const Microphone&) = delete;

    /// `name` as tqplatform-devices lists it; empty for the default. Waits a second at most for a
    /// server. False, with one line in `error`, when the platform has no unit for it. That none is
    /// there is no failure: it is heard when it comes.
    [[nodiscard]] bool start(const std::string& name, std::string& error);
    void stop();

    /// Whether one is open; asked of the platform.
    [[nodiscard]] static bool isOpen();
    /// Behind start(), while none is open: a line for the user that says why, and whether one that
    /// comes later is heard. `isToDuck` where something is ducked while it is loud.
    [[nodiscard]] std::string lack(bool isToDuck) const;
    /// [any thread] dBFS, RMS of the last block; -1000 for silence.
    [[nodiscard]] float level() const { return level_.load(std::memory_order_relaxed); }
    /// Hands on what was heard since the last call.
    void take(const std::function<void(const HeardBlock&)>& each);

  private:
    struct Header {
        std::uint64_t microseconds = 0;
        std::uint64_t first = 0;  ///< frame, counted since the start
        std::uint32_t frames = 0;
        std::uint64_t lost = 0;  ///< frames right before it
    };
    static constexpr std::size_t kBlocks = 1024;

    /// [render thread]
    static OSStatus listen(void* self, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames,
                           AudioBufferList* data) noexcept;
    OSStatus listen(AudioUnitRenderActionFlags* flags, const AudioTimeStamp& time, UInt32 bus,
                    UInt32 frames) noexcept;

    AudioUnit unit_ = nullptr;
    std::string name_;        ///< as start() was given it
    bool hasChoice_ = false;  ///< the device has microphones to choose from
    std::uint32_t channels_ = 1;
    std::vector<float> block_;  ///< of one slice; on the device's thread
    std::vector<float> ring_;
    std::array<Header, kBlocks> headers_{};
    std::uint64_t frames_ = 0;  ///< heard; on the device's thread
    std::uint64_t lost_ = 0;    ///< since the last that found room; the same
    std::atomic<std::uint64_t> written_{0};
    std::atomic<std::uint64_t> read_{0};
    std::atomic<std::uint64_t> readFrames_{0};  ///< released with read_
    std::vector<float> taken_;
    std::atomic<float> level_{-1000};
};

}  // namespace tqrecorder
