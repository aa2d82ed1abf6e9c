#pragma once

#include <SDL_audio.h>

#include <array>
#include <atomic>
#include <mutex>
#include <string>

#include "bridges/core/NativeFormat.h"
#include "bridges/sdl/ByteQueue.h"
#include "bridges/sdl/SdlLibrary.h"
#include "common/ForkLocks.h"

namespace tq::bridges {

/// A device of SDL whose callback is ours. The program's own fills the buffer first; where it has
/// none and queues its sound, that is kept here and not in SDL, so that it is processed and
/// recorded when SDL hands it to the device, not when the program queues it: that may be a whole
/// piece of music ahead.
class SdlDevice {
  public:
    /// [host thread] `desired` with our callback in it. Only before the device is opened.
    [[nodiscard]] SDL_AudioSpec wrap(const SDL_AudioSpec& desired) noexcept;
    /// [host thread] Puts the program's own callback back where SDL has left ours.
    void unwrap(SDL_AudioSpec* spec) const noexcept;
    /// [host thread] It is open, and not playing yet. `spec` is what the callback will fill.
    void begin(SDL_AudioDeviceID id, const SDL_AudioSpec& spec, const std::string& name);
    /// [host thread] SDL has closed it: nobody calls it any more.
    void end();

    /// Keeps its sound here.
    [[nodiscard]] bool isQueue() const noexcept { return callback_ == nullptr; }
    // [host thread] In place of SDL's functions of these names.
    [[nodiscard]] int queueAudio(const void* data, Uint32 length);
    [[nodiscard]] Uint32 queuedSize();
    void clearQueue();

  private:
    friend class SdlDevices;

    static void fill(void* device, Uint8* buffer, int length);
    [[nodiscard]] bool keep(const void* data, std::size_t length);
    [[nodiscard]] std::size_t drainQueue(Uint8* buffer, std::size_t length) noexcept;

    // Written before SDL makes the device's thread.
    SDL_AudioCallback callback_ = nullptr;
    void* userdata_ = nullptr;
    Uint8 silence_ = 0;

    ByteQueue queue_;  ///< under SDL's lock of the device

    // Under the lock of SdlDevices, but for look-ups.
    const SdlLibrary* library_ = nullptr;
    bool isTaken_ = false;
    std::atomic<SDL_AudioDeviceID> id_{0};  ///< published last, when the rest is in place
};

/// The devices of the process. SDL has 16 at most.
class SdlDevices {
  public:
    /// Made on first use, never destroyed: SDL's threads may outlive the end of the process.
    static SdlDevices& shared();

    /// [host thread] Null when all are in use.
    [[nodiscard]] SdlDevice* take(const SdlLibrary& library);
    /// [host thread] One that was taken and did not come to be opened.
    void giveBack(SdlDevice& device);
    /// [any thread] [real-time safe] Null for one that is not ours.
    [[nodiscard]] SdlDevice* find(const SdlLibrary& library, SDL_AudioDeviceID id) noexcept;
    /// [host thread] SDL has closed a device; or, with its sound, all of them.
    void close(const SdlLibrary& library, SDL_AudioDeviceID id);
    void closeAll(const SdlLibrary& library);

  private:
    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::NativeStreams, lock_};
    std::array<SdlDevice, 32> devices_;
};

}  // namespace tq::bridges
