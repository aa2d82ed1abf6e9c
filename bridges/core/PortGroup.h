#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bridges/core/NativeStream.h"
#include "bridges/core/ReservedMemory.h"

namespace tq::bridges {

/// An output port: memory for one channel of 32-bit float, which the program fills in each cycle.
struct OutputPort {
    OutputPort(const void* itsHandle, tq_speaker itsSpeaker)
        : handle(itsHandle), speaker(itsSpeaker) {}

    const void* handle;
    tq_speaker speaker;  ///< what it is meant for, where anybody says it
    /// What the program has asked the library for in this cycle. Written by whichever thread of the
    /// program asked, read and emptied by its process thread, which the program has made wait.
    std::atomic<float*> fetched{nullptr};
};

/// The output ports of one client as one stream: a channel a port, in the order in which they came.
/// All of them, connected or not: which of them are connected is the user's to change at any time,
/// and a track whose channels came and went with every cable would be none.
///
/// Ports that come or go while the client plays make it another stream, because a stream's number
/// of channels is constant. The new one is there before the process thread knows of the change, so
/// that no block is without a stream.
class PortGroup {
  public:
    /// Memory of a port in this cycle, for ports that the program did not ask for; may be null.
    using Fetch = float* (*)(const void* handle, std::size_t frames);

    explicit PortGroup(std::string api) : api_(std::move(api)) {}
    /// [host thread] When the process thread is no more inside.
    ~PortGroup();
    PortGroup(const PortGroup&) = delete;
    PortGroup& operator=(const PortGroup&) = delete;

    // [one host thread at a time]

    /// The port lives until it is removed. Throws std::bad_alloc with nothing changed.
    OutputPort& add(const void* handle, tq_speaker speaker = TQ_SPEAKER_UNKNOWN);
    /// Returns when the process thread does not touch it any more.
    void remove(const OutputPort& port);
    /// Its process thread is about to play `sampleRate` frames a second.
    void start(double sampleRate, std::string name);
    void stop();

    /// [any thread, one at a time] [real-time safe] The process thread: the program has filled its
    /// ports. Where ducking and compression are on, they are changed.
    void played(std::size_t frames, Fetch fetch) noexcept;

    template <class Visitor>
    void visit(Visitor visitor) const {
        for (const auto& port : ports_) {
            visitor(*port);
        }
    }

  private:
    /// As many ports as a stream has channels.
    static constexpr std::size_t kMostPorts = 8;

    /// The ports between two changes. Its address is the stream's key.
    struct Layout {
        std::vector<OutputPort*> ports;
        ReservedMemory interleaved;
        std::size_t patience = 0;      ///< frames of silence before it begins without a sound
        std::unique_ptr<Layout> next;  ///< of those that are not needed any more
        // The process thread's.
        std::size_t silentFrames = 0;
        bool hasBegun = false;
    };
    using Planes = std::array<float*, kMostPorts>;

    void arrange();
    void replace(std::unique_ptr<Layout> layout) noexcept;
    static bool isToWait(Layout& layout, std::size_t frames) noexcept;
    static void record(Layout& layout, const Planes& planes, std::size_t frames) noexcept;

    std::string api_;
    std::string name_;
    double sampleRate_ = 0;  ///< 0 while it does not play
    std::vector<std::unique_ptr<OutputPort>> ports_;
    std::unique_ptr<Layout> layout_;
    std::unique_ptr<Layout> retired_;  ///< those that the process thread may still read

    // Invariant: the process thread reads current_ after it has set isInside_, both in one total
    // order with the host's store of current_ and load of isInside_. So a host that has stored a
    // layout and then sees nobody inside knows that the one before is not read any more.
    std::atomic<Layout*> current_{nullptr};
    std::atomic<bool> isInside_{false};
};

}  // namespace tq::bridges
