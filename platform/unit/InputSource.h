#pragma once

#include <AudioToolbox/AudioToolbox.h>

namespace tqplatform {

/// What feeds an input bus of a unit.
struct InputSource {
    AURenderCallbackStruct callback{};  ///< in force when inputProc is not null
    AudioUnit unit = nullptr;           ///< else a connection, when not null
    UInt32 outputBus = 0;               ///< of the connected unit

    [[nodiscard]] bool isConnection() const noexcept {
        return callback.inputProc == nullptr && unit != nullptr;
    }
    [[nodiscard]] bool exists() const noexcept {
        return callback.inputProc != nullptr || unit != nullptr;
    }

    /// [render thread] [real-time safe] Renders `frames` for input bus `bus` into the list, whose
    /// buffers may come back shorter or pointing elsewhere. kAudioUnitErr_NoConnection when there
    /// is no source or the connected unit is gone.
    OSStatus pull(AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time, UInt32 bus,
                  UInt32 frames, AudioBufferList& list) const noexcept;
};

}  // namespace tqplatform
