#include <TQPlatform/ManualDevice.h>

#include <atomic>
#include <memory>

#include "common/Planes.h"
#include "device/Device.h"
#include "device/backends/Backends.h"

namespace tqplatform {

namespace {

constexpr UInt32 kChannels = 2;
constexpr UInt32 kMaximumFrames = 4096;
constexpr Float64 kFirstRate = 48000;
constexpr Float64 kLowestRate = 1000;
constexpr Float64 kHighestRate = 384000;

DeviceFormat formatAt(Float64 sampleRate) {
    return {sampleRate, kChannels, kChannels, kMaximumFrames};
}

bool isUsable(Float64 sampleRate) {
    // Written so that a NaN fails.
    return sampleRate >= kLowestRate && sampleRate <= kHighestRate;
}

/// No clock and no thread: the program pumps.
class ManualBackend final : public Backend {
  public:
    ManualBackend() : heard_(kChannels, kMaximumFrames), played_(kChannels, kMaximumFrames) {}

    std::optional<DeviceFormat> open(BackendHost& host) override {
        host_ = &host;
        return formatAt(kFirstRate);
    }
    // It is the program that begins and ends the requests.
    bool start() override { return true; }
    void stop() noexcept override {}
    bool preferRate(Float64 sampleRate, bool /*mayWait*/) noexcept override {
        if (!isUsable(sampleRate)) {
            return false;
        }
        wantedRate_.store(sampleRate, std::memory_order_relaxed);
        const Turn turn(busy_);
        if (turn.mine()) {
            takeWantedRate();
        }
        return true;  // after the pump that is under way, before the next
    }
    void forgetAfterFork() noexcept override { busy_.store(false, std::memory_order_relaxed); }

    OSStatus pump(UInt32 frames, UInt64 hostTime) {
        const Turn turn(busy_);
        if (!turn.mine()) {
            return kAudioUnitErr_CannotDoInCurrentContext;
        }
        if (frames < 1 || frames > kMaximumFrames) {
            return kAudio_ParamError;
        }
        takeWantedRate();
        const tqcommon::AudioView heard = heard_.view(frames);
        const tqcommon::AudioView played = played_.view(frames);
        silence(heard);
        if (input_.call != nullptr) {
            float* const planes[kChannels] = {heard.plane(0), heard.plane(1)};
            input_.call(input_.refCon, kChannels, frames, planes);
        }
        const AudioTimeStamp time = host_->render({frames, hostTime, heard, played});
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
        if (!isUsable(sampleRate)) {
            return kAudio_ParamError;
        }
        wantedRate_.store(sampleRate, std::memory_order_relaxed);
        takeWantedRate();
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

    /// In one's turn.
    void takeWantedRate() noexcept {
        if (const Float64 rate = wantedRate_.exchange(0, std::memory_order_relaxed); rate > 0) {
            host_->changed(formatAt(rate));
        }
    }

    template <class Call>
    OSStatus setTap(Tap<Call>& tap, Call call, void* refCon) {
        const Turn turn(busy_);
        if (!turn.mine()) {
            return kAudioUnitErr_CannotDoInCurrentContext;
        }
        tap = {call, refCon};
        return noErr;
    }

    BackendHost* host_ = nullptr;
    tqcommon::Planes heard_;
    tqcommon::Planes played_;
    std::atomic<bool> busy_{false};
    std::atomic<Float64> wantedRate_{0};  ///< Hz, not in force yet; 0 for none
    Tap<TQManualDeviceInput> input_;
    Tap<TQManualDeviceOutput> output_;
};

/// Runs `call` on the backend of the process's device when that is a manual one.
template <class Call>
OSStatus withManualBackend(Call call) {
    auto* const backend = dynamic_cast<ManualBackend*>(&sharedDevice().backend());
    return backend == nullptr ? OSStatus{kAudioUnitErr_Uninitialized} : call(*backend);
}

}  // namespace

std::unique_ptr<Backend> makeManualBackend() {
    return std::make_unique<ManualBackend>();
}

}  // namespace tqplatform

using tqplatform::withManualBackend;

OSStatus TQManualDevicePump(UInt32 frames, UInt64 hostTime) {
    return withManualBackend([=](auto& backend) { return backend.pump(frames, hostTime); });
}

OSStatus TQManualDeviceSetSampleRate(Float64 sampleRate) {
    return withManualBackend([=](auto& backend) { return backend.setSampleRate(sampleRate); });
}

OSStatus TQManualDeviceSetInput(TQManualDeviceInput input, void* refCon) {
    return withManualBackend([=](auto& backend) { return backend.setInput(input, refCon); });
}

OSStatus TQManualDeviceSetOutput(TQManualDeviceOutput output, void* refCon) {
    return withManualBackend([=](auto& backend) { return backend.setOutput(output, refCon); });
}
