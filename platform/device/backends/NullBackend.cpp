#include <TQPlatform/NullDevice.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
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
#include "device/SettingRequest.h"
#include "device/backends/Backends.h"

namespace tqplatform {

namespace {

constexpr UInt32 kFirstRate = 48000;
constexpr Float64 kLowestRate = 8000;
constexpr Float64 kHighestRate = 192000;
constexpr UInt32 kFirstFrames = 512;
constexpr UInt32 kFewestFrames = 64;
constexpr UInt32 kMostFrames = 4096;
constexpr UInt32 kChannels = 2;
constexpr UInt64 kNsPerSecond = 1'000'000'000;
/// No device has more: what was hurried is ahead of its time by any length.
constexpr UInt64 kMostInHandNs = kNsPerSecond;
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

DeviceFormat formatAt(UInt32 sampleRate, UInt32 frames) {
    return {static_cast<Float64>(sampleRate), kChannels, kChannels, kMostFrames, frames};
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
        return formatAt(kFirstRate, kFirstFrames);
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

    void beginAt(UInt64 hostTime) noexcept override {
        beginAt_.store(hostTime, std::memory_order_relaxed);
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
        settingRequest_.ask({.sampleRate = sampleRate}, mayWait, Change{*this});
        return true;
    }

    bool preferDuration(Float64 seconds, bool mayWait) noexcept override {
        // Written so that a NaN fails.
        if (!(seconds > 0)) {
            return false;
        }
        settingRequest_.ask({.seconds = seconds}, mayWait, Change{*this});
        return true;
    }

    void forgetAfterFork() noexcept override {
        settingRequest_.forgetAfterFork();
        // Constructed anew over the old: what stands for a thread that is not there cannot end.
        std::construct_at(&thread_);
        wish(Wish::rest);
    }

  private:
    enum class Wish { rest, run, end };
    /// What the turn of a request does.
    struct Change {
        NullBackend& self;
        void operator()(const ClockSetting& setting) const noexcept { self.change(setting); }
    };

    void wish(Wish wish) noexcept {
        wish_.store(wish);
        wish_.notify_one();
    }

    /// A device that has hurried is ahead of its time: it looks up to see whether it is to hurry
    /// on.
    void awaitPeriod(UInt64 deadlineNs) const {
        constexpr UInt64 kLookNs = 20'000'000;  // longer than most periods
        UInt64 now = nowNs();
        while (now + kLookNs < deadlineNs && hurriedFrames_.load(std::memory_order_relaxed) <= 0) {
            sleepUntil(now + kLookNs);
            now = nowNs();
        }
        if (hurriedFrames_.load(std::memory_order_relaxed) <= 0) {
            sleepUntil(deadlineNs);
        }
    }

    /// Its first period is played when it is to be.
    void awaitBegin(PeriodClock& clock) noexcept {
        const UInt64 soonest = clock.playTimeNs();
        const UInt64 begin = beginAt_.exchange(0, std::memory_order_relaxed);
        if (begin > soonest && begin - soonest < kMostInHandNs) {
            clock.start(clock.deadlineNs() + (begin - soonest));
        }
    }

    void run() {
        pthread_setname_np(pthread_self(), "TQAudioDevice");
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
        UInt32 rate = rate_.load();
        UInt32 frames = frames_.load();
        PeriodClock clock(rate, frames);
        while (true) {
            wish_.wait(Wish::rest);
            rate = rate_.load();
            frames = frames_.load();
            clock = PeriodClock(rate, frames);
            clock.start(nowNs());
            awaitBegin(clock);
            while (true) {
                if (hurriedFrames_.load(std::memory_order_relaxed) > 0) {
                    hurriedFrames_.fetch_sub(frames, std::memory_order_relaxed);
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
                settingRequest_.render(
                    Change{*this}, [&] { host_->changedLate(); },
                    [&] {
                        host_->render({frames, clock.playTimeNs()});
                    });
                clock.advance(nowNs());
                if (rate != rate_.load() || frames != frames_.load()) {
                    rate = rate_.load();
                    frames = frames_.load();
                    // From where the last period ends, so that no time stamp is set back.
                    const UInt64 due = clock.deadlineNs();
                    clock = PeriodClock(rate, frames);
                    clock.start(due);
                }
            }
        }
    }

    /// In the turn of the request. What is shorter or longer than can be had comes near.
    void change(const ClockSetting& setting) noexcept {
        const UInt32 rate = setting.sampleRate > 0
                                ? static_cast<UInt32>(std::lround(setting.sampleRate))
                                : rate_.load();
        const Float64 wanted =
            std::clamp<Float64>(setting.seconds * rate, kFewestFrames, kMostFrames);
        const UInt32 frames =
            setting.seconds > 0 ? static_cast<UInt32>(std::lround(wanted)) : frames_.load();
        if (rate != rate_.load() || frames != frames_.load()) {
            rate_.store(rate);
            frames_.store(frames);
            host_->changed(formatAt(rate, frames));
        }
    }

    BackendHost* host_ = nullptr;
    SettingRequest settingRequest_;
    std::atomic<UInt64> beginAt_{0};              ///< as beginAt() was told; 0 for at once
    std::atomic<std::int64_t> hurriedFrames_{0};  ///< that need not wait for their time
    std::atomic<UInt32> rate_{kFirstRate};        ///< Hz; the clock follows after the period
    std::atomic<UInt32> frames_{kFirstFrames};    ///< of a period; the same
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
