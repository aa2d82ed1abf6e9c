#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "output/live/LivePackets.h"

namespace tqrecorder {

/// What every program that holds live sources does: takes the recorder's packets and answers.
/// [one host thread at a time]
class LiveHolder {
  public:
    /// It ends with the recorder, and not before what it holds is taken back.
    static void outliveSignals();

    LiveHolder() = default;
    virtual ~LiveHolder() = default;
    LiveHolder(const LiveHolder&) = delete;
    LiveHolder& operator=(const LiveHolder&) = delete;

  protected:
    /// Takes what is there, without waiting. False when the recorder has gone.
    [[nodiscard]] bool takePackets();
    static void say(LiveKind kind, const std::string& text, std::uint32_t source = 0);

    virtual void open(const LiveHeader& header, const std::string& name,
                      const std::string& description) = 0;
    virtual void close(std::uint32_t source) = 0;
    /// Frames of floats; of a source that may be gone already.
    virtual void sound(std::uint32_t source, std::span<const std::byte> frames) = 0;

  private:
    LiveReceiver receiver_;
};

}  // namespace tqrecorder
