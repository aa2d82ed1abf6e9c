#pragma once

#include <SDL_audio.h>
#include <SDL_error.h>
#include <SDL_hints.h>

#include <string>

namespace tq::bridges {

/// One copy of SDL in the program. Versions 1.2, 2 and 3 share names of functions: what a call
/// means is told by the library that it goes to.
class SdlLibrary {
  public:
    /// [any thread] The one that defines `known`, one of the functions that are redirected. Never
    /// freed; real-time safe but for the first call with each function.
    static const SdlLibrary& of(const void* known);

    /// Opens devices with callbacks of ours: SDL 1.2 and 2. Version 3 plays streams.
    [[nodiscard]] bool hasCallbacks() const noexcept { return version_ != Version::kOther; }
    /// Has devices without a callback, which are fed by SDL_QueueAudio().
    [[nodiscard]] bool hasQueues() const noexcept { return hasQueues_; }
    /// Streams of the driver that is in use are taken here, and not from the interface below. As
    /// long as there is none: whether that may still become true.
    [[nodiscard]] bool isServed() const;
    /// The driver, empty while SDL's sound is not initialised.
    [[nodiscard]] std::string driver() const;
    /// What the program calls its sound; empty when it has not said it.
    [[nodiscard]] std::string streamName() const;

    /// SDL's message of what has failed last.
    [[nodiscard]] std::string lastError() const;

    /// [any thread] SDL's own lock of a device, the one that is held around callbacks.
    void lock(SDL_AudioDeviceID device) const { lock_(device); }
    void unlock(SDL_AudioDeviceID device) const { unlock_(device); }
    /// [any thread] Leaves SDL's message of missing memory; returns -1.
    int failForMemory() const { return fail_(SDL_ENOMEM); }

  private:
    enum class Version { kOther, kOne, kTwo };

    explicit SdlLibrary(const void* known);
    [[nodiscard]] static bool playsThroughNewer();

    const void* base_ = nullptr;
    Version version_ = Version::kOther;
    bool hasQueues_ = false;
    /// A library that defines redirected functions keeps its calls, so that what it plays to the
    /// interfaces below is not seen there. The calls of a program with SDL inside are redirected.
    bool keepsItsCalls_ = false;
    decltype(&SDL_GetCurrentAudioDriver) currentDriver_ = nullptr;
    char* (*driverName_)(char* name, int size) = nullptr;  ///< version 1.2
    decltype(&SDL_LockAudioDevice) lock_ = nullptr;
    decltype(&SDL_UnlockAudioDevice) unlock_ = nullptr;
    decltype(&SDL_GetHint) hint_ = nullptr;
    decltype(&SDL_Error) fail_ = nullptr;
    decltype(&SDL_GetError) lastError_ = nullptr;
};

}  // namespace tq::bridges
