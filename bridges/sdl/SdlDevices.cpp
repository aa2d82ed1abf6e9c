#include "bridges/sdl/SdlDevices.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

#include "bridges/core/GuardScope.h"
#include "bridges/core/NativeStream.h"
#include "bridges/sdl/SdlFormat.h"

namespace tq::bridges {

// ---- one device ---------------------------------------------------------------------------------

SDL_AudioSpec SdlDevice::wrap(const SDL_AudioSpec& desired) noexcept {
    callback_ = desired.callback;
    userdata_ = desired.userdata;
    SDL_AudioSpec ours = desired;
    ours.callback = &fill;
    ours.userdata = this;
    return ours;
}

void SdlDevice::unwrap(SDL_AudioSpec* spec) const noexcept {
    if (spec != nullptr && spec->callback == &fill) {
        spec->callback = callback_;
        spec->userdata = userdata_;
    }
}

void SdlDevice::begin(SDL_AudioDeviceID id, const SDL_AudioSpec& spec, const std::string& name) {
    silence_ = spec.silence;
    if (library_->isServed()) {
        NativeStream::open(this,
                           {sdlSample(spec.format), spec.channels, static_cast<double>(spec.freq),
                            sdlSpeakers(spec.channels)},
                           "sdl", name);
    }
    if (const NativeStream::Use stream(this); stream && spec.freq > 0) {
        // As measured on PulseAudio; SDL does not say it.
        constexpr double kBuffersAhead = 0.5;
        stream->heardIn(
            std::chrono::nanoseconds(std::llround(kBuffersAhead * spec.samples * 1e9 / spec.freq)));
    }
    id_.store(id, std::memory_order_release);
}

void SdlDevice::end() {
    id_.store(0, std::memory_order_relaxed);
    NativeStream::close(this);
    queue_.clear();
}

/// [render thread] SDL's own, with SDL's lock of the device held.
void SdlDevice::fill(void* device, Uint8* buffer, int length) {
    auto& self = *static_cast<SdlDevice*>(device);
    const auto bytes = static_cast<std::size_t>(length);
    if (!self.isQueue()) {
        self.callback_(self.userdata_, buffer, length);
    } else if (self.drainQueue(buffer, bytes) == 0) {
        // Silence of SDL's own: a program that only waits is not recorded for that.
        return;
    }
    if (const NativeStream::Use stream(&self); stream) {
        const std::size_t frames = bytes / stream->format().bytesPerFrame();
        (void)stream->prepare(buffer, frames, NativeStream::Memory::kChangeable);
        stream->accepted(frames);
    }
}

std::size_t SdlDevice::drainQueue(Uint8* buffer, std::size_t length) noexcept {
    const GuardScope guard;
    const std::size_t taken = queue_.read(buffer, length);
    std::memset(buffer + taken, silence_, length - taken);
    return taken;
}

bool SdlDevice::keep(const void* data, std::size_t length) {
    const GuardScope guard;
    return queue_.write(data, length);
}

int SdlDevice::queueAudio(const void* data, Uint32 length) {
    const SDL_AudioDeviceID id = id_.load(std::memory_order_relaxed);
    library_->lock(id);
    const bool isKept = keep(data, length);
    library_->unlock(id);
    return isKept ? 0 : library_->failForMemory();
}

Uint32 SdlDevice::queuedSize() {
    const SDL_AudioDeviceID id = id_.load(std::memory_order_relaxed);
    library_->lock(id);
    const auto size = static_cast<Uint32>(queue_.size());
    library_->unlock(id);
    return size;
}

void SdlDevice::clearQueue() {
    const SDL_AudioDeviceID id = id_.load(std::memory_order_relaxed);
    library_->lock(id);
    queue_.clear();
    library_->unlock(id);
}

// ---- all devices --------------------------------------------------------------------------------

SdlDevices& SdlDevices::shared() {
    static auto* const instance = new SdlDevices;
    return *instance;
}

SdlDevice* SdlDevices::take(const SdlLibrary& library) {
    const std::scoped_lock guard(lock_);
    const auto found = std::find_if(devices_.begin(), devices_.end(),
                                    [](const SdlDevice& device) { return !device.isTaken_; });
    if (found == devices_.end()) {
        return nullptr;
    }
    found->isTaken_ = true;
    found->library_ = &library;
    return &*found;
}

void SdlDevices::giveBack(SdlDevice& device) {
    const std::scoped_lock guard(lock_);
    device.isTaken_ = false;
}

SdlDevice* SdlDevices::find(const SdlLibrary& library, SDL_AudioDeviceID id) noexcept {
    for (SdlDevice& device : devices_) {
        if (id != 0 && device.id_.load(std::memory_order_acquire) == id &&
            device.library_ == &library) {
            return &device;
        }
    }
    return nullptr;
}

void SdlDevices::close(const SdlLibrary& library, SDL_AudioDeviceID id) {
    if (SdlDevice* const device = find(library, id)) {
        device->end();
        giveBack(*device);
    }
}

void SdlDevices::closeAll(const SdlLibrary& library) {
    for (SdlDevice& device : devices_) {
        close(library, device.library_ == &library ? device.id_.load() : 0);
    }
}

}  // namespace tq::bridges
