#include <TQPlatform/ManualDevice.h>

#include <atomic>
#include <memory>

#include "device/Driver.h"

namespace tqplatform {

namespace {

constexpr UInt32 kChannels = 2;
constexpr UInt32 kMaximumFrames = 4096;
constexpr Float64 kFirstRate = 48000;
constexpr Float64 kLowestRate = 1000;
constexpr Float64 kHighestRate = 384000;

class ManualDevice final : public Driver {
  public:
    ManualDevice() : buffers_(kChannels, kChannels, kMaximumFrames) {}

    [[nodiscard]] std::string_view name() const noexcept override { return "manual"; }
    [[nodiscard]] Float64 sampleRate() const noexcept override {
        return sampleRate_.load(std::memory_order_relaxed);
    }
    [[nodiscard]] UInt32 outputChannels() const noexcept override { return kChannels; }
    [[nodiscard]] UInt32 inputChannels() const noexcept override { return kChannels; }
    [[nodiscard]] UInt32 maximumFrames() const noexcept override { return kMaximumFrames; }
    [[nodiscard]] bool addClient(DeviceClient& client) override {
        clients_.add(client);
        return true;
    }
    void resetAfterFork() noexcept override {
        // A pump of the forking thread goes on in the child; any other does not.
        const bool pumping = isDeviceThread();
        Driver::resetAfterFork();
        if (!pumping) {
            busy_.store(false, std::memory_order_relaxed);
        }
    }

    OSStatus pump(UInt32 frames, UInt64 hostTime) {
        const Turn turn(busy_);
        if (!turn.mine()) {
            return kAudioUnitErr_CannotDoInCurrentContext;
        }
        if (frames < 1 || frames > kMaximumFrames) {
            return kAudio_ParamError;
        }
        AudioTimeStamp time{};
        time.mSampleTime = static_cast<Float64>(framesRendered_);
        time.mHostTime = hostTime;
        time.mRateScalar = 1;
        time.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
        const tqcommon::AudioView heard = buffers_.input(frames);
        const tqcommon::AudioView played = buffers_.sum(frames);
        silence(heard);
        silence(played);
        if (input_.call != nullptr) {
            float* const planes[kChannels] = {heard.plane(0), heard.plane(1)};
            input_.call(input_.refCon, kChannels, frames, planes);
        }
        clients_.render(time, frames, buffers_);
        framesRendered_ += frames;
        if (output_.call != nullptr) {
            const float* const planes[kChannels] = {played.plane(0), played.plane(1)};
            output_.call(output_.refCon, &time, kChannels, frames, planes);
        }
        return noErr;
    }

    OSStatus setSampleRate(Float64 sampleRate) {
        const Turn turn(busy_);
        if (!turn.mine()) {
            return kAudioUnitErr_CannotDoInCurrentContext;
        }
        // Written so that a NaN fails.
        if (!(sampleRate >= kLowestRate && sampleRate <= kHighestRate)) {
            return kAudio_ParamError;
        }
        sampleRate_.store(sampleRate, std::memory_order_relaxed);
        return noErr;
    }

    OSStatus setInput(TQManualDeviceInput input, void* refCon) {
        return setTap(input_, input, refCon);
    }
    OSStatus setOutput(TQManualDeviceOutput output, void* refCon) {
        return setTap(output_, output, refCon);
    }

  private:
    template <class Call>
    struct Tap {
        Call call = nullptr;
        void* refCon = nullptr;
    };

    /// The pump and the calls that must not come during one exclude each other by refusing.
    class Turn {
      public:
        explicit Turn(std::atomic<bool>& busy)
            : busy_(busy), mine_(!busy.exchange(true, std::memory_order_acquire)) {}
        ~Turn() {
            if (mine_) {
                busy_.store(false, std::memory_order_release);
            }
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        [[nodiscard]] bool mine() const noexcept { return mine_; }

      private:
        std::atomic<bool>& busy_;
        const bool mine_;
    };

    template <class Call>
    OSStatus setTap(Tap<Call>& tap, Call call, void* refCon) {
        const Turn turn(busy_);
        if (!turn.mine()) {
            return kAudioUnitErr_CannotDoInCurrentContext;
        }
        tap = {call, refCon};
        return noErr;
    }

    SliceBuffers buffers_;
    std::atomic<Float64> sampleRate_{kFirstRate};
    std::atomic<bool> busy_{false};
    UInt64 framesRendered_ = 0;
    Tap<TQManualDeviceInput> input_;
    Tap<TQManualDeviceOutput> output_;
};

/// Runs `call` on the process's device when that is a manual one.
template <class Call>
OSStatus withManualDevice(Call call) {
    auto* const device = dynamic_cast<ManualDevice*>(&sharedDevice());
    return device == nullptr ? OSStatus{kAudioUnitErr_Uninitialized} : call(*device);
}

}  // namespace

std::unique_ptr<Driver> makeManualDevice() {
    return std::make_unique<ManualDevice>();
}

}  // namespace tqplatform

using tqplatform::withManualDevice;

OSStatus TQManualDevicePump(UInt32 frames, UInt64 hostTime) {
    return withManualDevice([=](auto& device) { return device.pump(frames, hostTime); });
}

OSStatus TQManualDeviceSetSampleRate(Float64 sampleRate) {
    return withManualDevice([=](auto& device) { return device.setSampleRate(sampleRate); });
}

OSStatus TQManualDeviceSetInput(TQManualDeviceInput input, void* refCon) {
    return withManualDevice([=](auto& device) { return device.setInput(input, refCon); });
}

OSStatus TQManualDeviceSetOutput(TQManualDeviceOutput output, void* refCon) {
    return withManualDevice([=](auto& device) { return device.setOutput(output, refCon); });
}
