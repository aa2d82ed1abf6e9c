#pragma once

#include "common/Planes.h"
#include "device/Backend.h"
#include "device/DeviceClient.h"

namespace tqplatform {

/// All memory of a slice, allocated once: the planes of the client whose turn it is and, for
/// backends that do not offer planes of their own, the microphone's and the sum of what the clients
/// rendered.
class SliceBuffers {
  public:
    /// [host thread] Throws std::bad_alloc.
    SliceBuffers(UInt32 inputChannels, UInt32 outputChannels, UInt32 maximumFrames);

    // [render thread] [real-time safe] In this order: begin, then next and mix for every client,
    // then end.

    /// The slice is `frames` frames of the block from frame `first` on, which was heard at
    /// `heardTime`. `time` and the block live until end().
    void begin(const AudioTimeStamp& time, UInt64 heardTime, const BlockRequest& block,
               UInt32 first, UInt32 frames) noexcept;
    /// The slice for the next client, its output planes zeroed. Valid until the next call.
    [[nodiscard]] const DeviceSlice& next() noexcept;
    /// Adds what that client rendered to what is played.
    void mix() noexcept;
    /// The backend has its sum.
    void end() noexcept;

  private:
    tqcommon::Planes input_;
    tqcommon::Planes client_;
    tqcommon::Planes sum_;
    tqcommon::Planes silence_;  ///< one plane, for all channels of a microphone that is silent
    DeviceSlice slice_;
    tqcommon::AudioView played_;  ///< where the backend wants the sum; empty when nobody hears it
    tqcommon::AudioView planes_;  ///< where the sum is made: there, or in sum_
};

}  // namespace tqplatform
