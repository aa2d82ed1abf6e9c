#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <system_error>
#include <thread>

#include "common/SignalsBlocked.h"
#include "device/Driver.h"
#include "device/PeriodClock.h"

namespace tqplatform {

namespace {

constexpr UInt32 kSampleRate = 48000;
constexpr UInt32 kFrames = 512;
constexpr UInt32 kChannels = 2;
constexpr UInt64 kNsPerSecond = 1'000'000'000;
/// As high as a thread gets without a real-time class. Nobody hears it when the null device is
/// late, and a real-time thread that spins for a host's lock could keep the lock's holder off the
/// only core.
constexpr int kNiceness = -11;

UInt64 nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<UInt64>(now.tv_sec) * kNsPerSecond + static_cast<UInt64>(now.tv_nsec);
}

void sleepUntil(UInt64 deadlineNs) {
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(deadlineNs / kNsPerSecond);
    deadline.tv_nsec = static_cast<long>(deadlineNs % kNsPerSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

;

/// A clock without hardware: one thread paced by the monotonic clock plays into nothing and
/// records silence. The thread comes with the first client and then stays, asleep while there is
/// no client. The device must never be destroyed.
class NullDevice final : public Driver {
  public:
    NullDevice() : buffers_(kChannels, kChannels, kFrames) {}

    [[nodiscard]] std::string_view name() const noexcept override { return "null"; }
    [[nodiscard]] Float64 sampleRate() const noexcept override { return kSampleRate; }
    [[nodiscard]] UInt32 outputChannels() const noexcept override { return kChannels; }
    [[nodiscard]] UInt32 inputChannels() const noexcept override { return kChannels; }
    [[nodiscard]] UInt32 maximumFrames() const noexcept override { return kFrames; }

    [[nodiscard]] bool addClient(DeviceClient& client) override {
        const bool added = clients_.add(client);
        if (startThread()) {
            return true;
        }
        if (added) {
            clients_.remove(client);
        }
        return false;
    }

    void resetAfterFork() noexcept override {
        // When a client forks, the forking thread is this device's, and it is the child's too.
        threadRuns_ = isDeviceThread();
        std::construct_at(&threadMutex_);
        Driver::resetAfterFork();
    }

  private:
    /// False when the process can have no further thread.
    bool startThread() {
        const std::lock_guard lock(threadMutex_);
        if (threadRuns_) {
            return true;
        }
        try {
            const tqcommon::SignalsBlocked blocked;
            std::thread([this] { run(); }).detach();
        } catch (const std::system_error&) {
            return false;
        }
        threadRuns_ = true;
        return true;
    }

    [[noreturn]] void run() {
        pthread_setname_np(pthread_self(), "TQAudioDevice");
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
        PeriodClock clock(kSampleRate, kFrames);
        while (true) {
            clients_.waitUntilUsed();
            clock.start(nowNs());
            while (true) {
                sleepUntil(clock.deadlineNs());
                if (clients_.empty()) {
                    break;
                }
                renderSlice(clock.playTimeNs());
                clock.advance(nowNs());
            }
        }
    }

    void renderSlice(UInt64 hostTime) {
        AudioTimeStamp time{};
        time.mSampleTime = static_cast<Float64>(framesRendered_);
        time.mHostTime = hostTime;
        time.mRateScalar = 1;
        time.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
        clients_.render(time, kFrames, buffers_);
        framesRendered_ += kFrames;
    }

    SliceBuffers buffers_;
    UInt64 framesRendered_ = 0;
    std::mutex threadMutex_;
    bool threadRuns_ = false;
};

}  // namespace

std::unique_ptr<Driver> makeNullDevice() {
    return std::make_unique<NullDevice>();
}

}  // namespace tqplatform
