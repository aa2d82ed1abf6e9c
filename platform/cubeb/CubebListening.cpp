// The microphone of CubebDevice: which one it is, and what it brings.

#include <algorithm>
#include <span>
#include <string_view>

#include "CubebDevice.h"
#include "CubebStreams.h"

namespace tqcubeb {

namespace {

constexpr UInt32 kMostHeardChannels = 2;
/// One that brings nothing for so long stands still.
constexpr UInt64 kStillNs = 1'000'000'000;
/// The same behind its start: a source that sleeps takes seconds to wake.
constexpr UInt64 kWakingNs = 3'000'000'000;

}  // namespace

CubebDevice::Microphone CubebDevice::microphone() {
    cubeb_device_collection devices{};
    if (cubeb_enumerate_devices(context_.get(), CUBEB_DEVICE_TYPE_INPUT, &devices) != CUBEB_OK) {
        return {};
    }
    const std::span all(devices.device, devices.count);
    const auto isUsual = [](const cubeb_device_info& device) {
        return device.preferred != CUBEB_DEVICE_PREF_NONE;
    };
    const auto isWanted = [&](const cubeb_device_info& device) {
        const std::string_view name = device.device_id == nullptr ? "" : device.device_id;
        // Servers without a microphone call what programs play the default.
        return device.state == CUBEB_DEVICE_STATE_ENABLED &&
               (microphoneName_.empty() ? !isOfPrograms(name) : microphoneName_ == name);
    };
    auto found = std::find_if(all.begin(), all.end(), [&](const cubeb_device_info& device) {
        return isUsual(device) && isWanted(device);
    });
    if (found == all.end()) {
        found = std::find_if(all.begin(), all.end(), isWanted);
    }
    Microphone microphone;
    if (found != all.end()) {
        microphone.channels = std::min<UInt32>(found->max_channels, kMostHeardChannels);
        // It stays the context's when the list has gone. Of the default none: it is followed.
        const bool isFollowed = microphoneName_.empty() && isUsual(*found);
        microphone.id = isFollowed ? nullptr : found->devid;
    }
    cubeb_device_collection_destroy(context_.get(), &devices);
    return microphone;
}

bool CubebDevice::mishears() const noexcept {
    return watch_ != nullptr && watch_->mishears();
}

bool CubebDevice::isHearing() const {
    return isHearing_.load() && nowNs() < heardUntil_.load(std::memory_order_relaxed);
}

bool CubebDevice::isStill() const {
    // What is heard instead of it is none that would begin again.
    return isHearing_.load() && !isHearing() && !mishears();
}

bool CubebDevice::hear(bool isHearing) {
    if (!isToPlay_ || isHearing == (microphone_ != nullptr)) {
        return true;
    }
    if (!isHearing) {
        stoodStill_ = isHearing_.load() && !this->isHearing();
        isHearing_.store(false);
        microphone_.reset();
        return true;
    }
    if (heard_ == nullptr) {
        // Plugged in later: programs were told of none. What is opened anew knows it.
        return microphone().channels == 0;
    }
    heard_->restart();
    heardClock_ = PlayClock(sampleRate_);
    heardSince_.store(0, std::memory_order_relaxed);
    static_cast<void>(listen(&onHeard, &onHeardState, lengths_.heard));
    return true;
}

void CubebDevice::choose(const std::string& microphone) {
    // No request reads it meanwhile: the microphone's stream is closed.
    microphoneName_ = microphone;
    if (watch_ != nullptr) {
        watch_->expect(microphone);
    }
    stoodStill_ = false;
}

bool CubebDevice::listen(cubeb_data_callback each, cubeb_state_callback state, UInt32 frames) {
    const Microphone found = microphone();
    cubeb_stream_params params = paramsAt(sampleRate_, inputChannels_);
    cubeb_stream* stream = nullptr;
    if (found.channels == 0 ||
        cubeb_stream_init(context_.get(), &stream, kName, found.id, &params, nullptr, nullptr,
                          frames, each, state, this) != CUBEB_OK) {
        return false;
    }
    microphone_.reset(stream);
    // One that stood still is heard again once it brings something, not by being opened.
    heardUntil_.store(stoodStill_ ? 0 : nowNs() + kWakingNs, std::memory_order_relaxed);
    // Before it is started, so that an error which comes at once has the last word.
    isHearing_.store(true);
    if (cubeb_stream_start(stream) != CUBEB_OK) {
        isHearing_.store(false);
        microphone_.reset();
        return false;
    }
    return true;
}

long CubebDevice::onHeardAlone(cubeb_stream* /*stream*/, void* self, const void* heard,
                               void* /*played*/, long frames) {
    static_cast<CubebDevice*>(self)->hearAlone(static_cast<const float*>(heard),
                                               static_cast<UInt32>(frames));
    return frames;
}

void CubebDevice::hearAlone(const float* heard, UInt32 frames) noexcept {
    hurry();
    if (mishears()) {
        if (isHearing_.exchange(false)) {
            host_->lostHeard();  // as if it had ended: there is none, or another is opened
        }
        return;
    }
    heardUntil_.store(nowNs() + kStillNs, std::memory_order_relaxed);
    const UInt64 heardTime = clock_.next(nowNs() - durationOf(frames), frames);
    host_->renderHeard(
        {.frames = frames,
         .hostTime = heardTime,
         .heard = tqcommon::ConstAudioView::interleaved(heard, inputChannels_, frames),
         .played = {},
         .heardTime = heardTime});
}

long CubebDevice::onHeard(cubeb_stream* /*stream*/, void* self, const void* heard, void* /*played*/,
                          long frames) {
    static_cast<CubebDevice*>(self)->bring(static_cast<const float*>(heard),
                                           static_cast<UInt32>(frames));
    return frames;
}

void CubebDevice::bring(const float* heard, UInt32 frames) noexcept {
    if (mishears()) {
        heardUntil_.store(0, std::memory_order_relaxed);
        return;
    }
    heardUntil_.store(nowNs() + kStillNs, std::memory_order_relaxed);
    const UInt64 heardTime = heardClock_.next(nowNs() - durationOf(frames), frames);
    heardSince_.store(static_cast<Float64>(heardTime) -
                          static_cast<Float64>(heard_->written()) * kNsPerSecond / sampleRate_,
                      std::memory_order_relaxed);
    heard_->write(heard, frames);
}

void CubebDevice::onHeardState(cubeb_stream* /*stream*/, void* self, cubeb_state state) {
    auto& device = *static_cast<CubebDevice*>(self);
    // On JACK the library calls every block of what only listens an error.
    if (state == CUBEB_STATE_ERROR && !device.isJack_) {
        // Silence is heard; speakers go on.
        device.isHearing_.store(false);
    }
}

void CubebDevice::onHeardAloneState(cubeb_stream* stream, void* self, cubeb_state state) {
    // The same; that the server has gone is known from elsewhere.
    if (state != CUBEB_STATE_ERROR || !static_cast<CubebDevice*>(self)->isJack_) {
        onState(stream, self, state);
    }
}

UInt64 CubebDevice::heardTimeOf(UInt32 frames) const noexcept {
    const Float64 beganAt = heardSince_.load(std::memory_order_relaxed);
    const Float64 at = beganAt + heard_->firstOf(frames) * kNsPerSecond / sampleRate_;
    // Before it has brought anything it was heard nobody knows when.
    return beganAt == 0 || at < 0 ? 0 : static_cast<UInt64>(at);
}

}  // namespace tqcubeb
