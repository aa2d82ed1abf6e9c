#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <system_error>
#include <thread>

#include "common/SignalsBlocked.h"
#include "device/PeriodClock.h"
#include "device/backends/Backends.h"

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
        return DeviceFormat{kSampleRate, kChannels, kChannels, kFrames};
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

    void forgetAfterFork() noexcept override {
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

    void run() {
        pthread_setname_np(pthread_self(), "TQAudioDevice");
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
        PeriodClock clock(kSampleRate, kFrames);
        while (true) {
            wish_.wait(Wish::rest);
            clock.start(nowNs());
            while (true) {
                sleepUntil(clock.deadlineNs());
                const Wish now = wish_.load();
                if (now == Wish::end) {
                    return;
                }
                if (now == Wish::rest) {
                    break;
                }
                host_->render({kFrames, clock.playTimeNs()});
                clock.advance(nowNs());
            }
        }
    }

    BackendHost* host_ = nullptr;
    /// What the thread is to do: written by the verbs, read by the thread at every deadline.
    std::atomic<Wish> wish_{Wish::rest};
    std::thread thread_;
};

}  // namespace

std::unique_ptr<Backend> makeNullBackend() {
    return std::make_unique<NullBackend>();
}

}  // namespace tqplatform
