#pragma once

#include <CoreAudio/CoreAudioTypes.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace tqplatform {

/// What a program asks a clock for.
struct ClockSetting {
    Float64 sampleRate = 0;  ///< Hz; 0 leaves it
    Float64 seconds = 0;     ///< of one request; 0 leaves it
};

/// Brings what a program asks for to a backend between two of its requests.
///
/// Invariant: `turn_` is held by whoever renders or changes the format, never by both. Writers: any
/// thread asks, the holder of the turn takes what was asked for last and applies it. Published: the
/// values asked for, with what the change did, by releasing the turn; taking it acquires.
class SettingRequest {
  public:
    /// [any thread] Notes it and applies it as soon as no request is under way; when one takes
    /// long, or may not be waited for, it is left to whoever renders next. `apply` is handed what
    /// is asked for.
    template <class Apply>
    void ask(const ClockSetting& setting, bool mayWait, const Apply& apply) noexcept {
        if (setting.sampleRate > 0) {
            sampleRate_.store(setting.sampleRate, std::memory_order_relaxed);
        }
        if (setting.seconds > 0) {
            seconds_.store(setting.seconds, std::memory_order_relaxed);
        }
        waiting_.fetch_add(mayWait ? 1 : 0);
        const auto end = std::chrono::steady_clock::now() + kLongestWait;
        bool isMine = enter();
        while (!isMine && mayWait && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(kWaitStep);
            isMine = enter();
        }
        if (isMine) {
            static_cast<void>(applyAsked(apply));
            leave();
        }
        waiting_.fetch_sub(mayWait ? 1 : 0);
    }

    /// [render thread] Around each request; applies what was asked for before it begins, and calls
    /// `tellLate` when nobody who asked waits for it. Waits for a change that is under way, which
    /// is a few stores.
    template <class Apply, class TellLate, class Render>
    void render(const Apply& apply, const TellLate& tellLate, const Render& render) {
        while (!enter()) {
            std::this_thread::yield();
        }
        // Read behind the change and written: whoever gives up waiting later sees the change.
        if (applyAsked(apply) && waiting_.fetch_add(0) == 0) {
            tellLate();
        }
        render();
        leave();
    }

    /// In the child of a fork.
    void forgetAfterFork() noexcept {
        waiting_.store(0);
        leave();
    }

  private:
    /// A caller may hold a lock that a callback of the request wants, so the wait ends: after two
    /// usual periods.
    static constexpr std::chrono::milliseconds kLongestWait{25};
    static constexpr std::chrono::microseconds kWaitStep{100};

    [[nodiscard]] bool enter() noexcept { return !turn_.test_and_set(std::memory_order_acquire); }
    void leave() noexcept { turn_.clear(std::memory_order_release); }
    static Float64 taken(std::atomic<Float64>& asked) noexcept {
        return asked.load(std::memory_order_relaxed) > 0
                   ? asked.exchange(0, std::memory_order_relaxed)
                   : 0;
    }
    template <class Apply>
    [[nodiscard]] bool applyAsked(const Apply& apply) noexcept {
        const ClockSetting setting{taken(sampleRate_), taken(seconds_)};
        const bool isAny = setting.sampleRate > 0 || setting.seconds > 0;
        if (isAny) {
            apply(setting);
        }
        return isAny;
    }

    std::atomic_flag turn_;
    std::atomic<Float64> sampleRate_{0};  ///< 0 when nothing is asked for
    std::atomic<Float64> seconds_{0};     ///< the same
    std::atomic<int> waiting_{0};         ///< who have asked and wait for it
};

}  // namespace tqplatform
