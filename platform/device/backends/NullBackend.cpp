#include <TQPlatform/NullDevice.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <memory>
#include <system_error>
#include <thread>

#include "common/SignalsBlocked.h"
#include "device/Device.h"
#include "device/PeriodClock.h"
#include "device/RateRequest.h"
#include "device/backends/Backends.h"

namespace tqplatform {

namespace {

constexpr UInt32 kFirstRate = 48000;
constexpr Float64 kLowestRate = 8000;
constexpr Float64 kHighestRate = 192000;
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

DeviceFormat formatAt(UInt32 sampleRate) {
    return {static_cast<Float64>(sampleRate), kChannels, kChannels, kFrames, kFrames};
}

/// A clock without hardware: one thread paced by the monotonic clock plays into nothing and hears
/// silence. The thread comes with the first start() and then stays, asleep while stopped.
class NullBackend final : public Backend {
  public:
    ~NullBackend() override {
        if (thread_.joinable()) {
            wish(Wish::end);
            thread_.join();
        }
    }

    std::optional<DeviceFormat> open(BackendHost& host) override {
        host_ = &host;
        return formatAt(kFirstRate);
    }

    bool start() override {
        wish(Wish::run);
        if (thread_.joinable()) {
            return true;
        }
        try {
            const tqcommon::SignalsBlocked blocked;
            thread_ = std::thread([this] { run(); });
        } catch (const std::system_error&) {
            return false;  // the process can have no further thread
        }
        return true;
    }

    void stop() noexcept override { wish(Wish::rest); }

    /// A period that is being waited for still comes at its time, or in 0.02 s.
    bool hurry(Float64 seconds) noexcept override {
        hurriedFrames_.store(std::llround(seconds * rate_.load()), std::memory_order_relaxed);
        return true;
    }

    bool preferRate(Float64 sampleRate, bool mayWait) noexcept override {
        // Written so that a NaN fails.
        if (!(sampleRate >= kLowestRate && sampleRate <= kHighestRate)) {
            return false;
        }
        rateRequest_.ask(sampleRate, mayWait, [this](Float64 rate) { changeRate(rate); });
        return true;
    }

    void forgetAfterFork() noexcept override {
        rateRequest_.forgetAfterFork();
        // Constructed anew over the old: what stands for a thread that is not there cannot end.
        std::construct_at(&thread_);
        wish(Wish::rest);
    }

  private:
    enum class Wish { rest, run, end };

    void wish(Wish wish) noexcept {
        wish_.store(wish);
        wish_.notify_one();
    }

    /// A device that has hurried is ahead of its time: it looks up to see whether it is to hurry
    /// on.
    void awaitPeriod(UInt64 deadlineNs) const {
        constexpr UInt64 kLookNs = 20'000'000;  // longer than a period at any common rate
        UInt64 now = nowNs();
        while (now + kLookNs < deadlineNs && hurriedFrames_.load(std::memory_order_relaxed) <= 0) {
            sleepUntil(now + kLookNs);
            now = nowNs();
        }
        if (hurriedFrames_.load(std::memory_order_relaxed) <= 0) {
            sleepUntil(deadlineNs);
        }
    }

    void run() {
        pthread_setname_np(pthread_self(), "TQAudioDevice");
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
        UInt32 rate = rate_.load();
        PeriodClock clock(rate, kFrames);
        while (true) {
            wish_.wait(Wish::rest);
            clock.start(nowNs());
            while (true) {
                if (hurriedFrames_.load(std::memory_order_relaxed) > 0) {
                    hurriedFrames_.fetch_sub(kFrames, std::memory_order_relaxed);
                } else {
                    awaitPeriod(clock.deadlineNs());
                }
                const Wish now = wish_.load();
                if (now == Wish::end) {
                    return;
                }
                if (now == Wish::rest) {
                    break;
                }
                rateRequest_.render([this](Float64 wanted) { changeRate(wanted); },
                                    [&] {
                                        host_->render({kFrames, clock.playTimeNs()});
                                    });
                clock.advance(nowNs());
                if (const UInt32 other = rate_.load(); other != rate) {
                    rate = other;
                    clock = PeriodClock(rate, kFrames);
                    clock.start(nowNs());
                }
            }
        }
    }

    /// In the turn of the rate request.
    void changeRate(Float64 sampleRate) noexcept {
        const auto rate = static_cast<UInt32>(std::lround(sampleRate));
        if (rate != rate_.load()) {
            rate_.store(rate);
            host_->changed(formatAt(rate));
        }
    }

    BackendHost* host_ = nullptr;
    RateRequest rateRequest_;
    std::atomic<std::int64_t> hurriedFrames_{0};  ///< that need not wait for their time
    std::atomic<UInt32> rate_{kFirstRate};        ///< Hz; the clock follows after the period
    /// What the thread is to do: written by the verbs, read by the thread at every deadline.
    std::atomic<Wish> wish_{Wish::rest};
    std::thread thread_;
};

}  // namespace

std::unique_ptr<Backend> makeNullBackend() {
    return std::make_unique<NullBackend>();
}

}  // namespace tqplatform

OSStatus TQNullDeviceHurry(Float64 seconds) {
    constexpr Float64 kMostSeconds = 60;
    // Written so that a NaN fails.
    if (!(seconds >= 0 && seconds <= kMostSeconds)) {
        return kAudio_ParamError;
    }
    return tqplatform::sharedDevice().backend().hurry(seconds) ? 0 : kAudioUnitErr_Uninitialized;
}
