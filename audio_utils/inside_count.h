#pragma once

#include <atomic>
#include <cstdint>

#include "bus_guard.h"
#include "common/RealTime.h"

namespace korva_audio_utils {

/// How many threads are inside something, kept in a word of a mapped file.
///
/// Lock-free:
/// - Invariant: the word holds the number of threads inside, once no thread is on its way in or
///   out; a process that dies inside leaves a number above 0.
/// - Writers are the threads that enter and leave. Each stores the coming count into the word
///   (relaxed) and then makes the change with one compare-and-swap (sequentially consistent) under
///   a new version. When another change came first the swap fails, and the thread stores and swaps
///   again. So the thread whose swap came last also stored last.
/// - The reader is the next launch of the program, which maps the same file.
/// - The word is null until bind() publishes it with release order.
class InsideCount {
  public:
    /// [any thread] Real-time safe. A thread enters; what it stores into needs letThrough() once.
    void enter() noexcept TQ_NONBLOCKING {
        BusGuard::letThrough();
        change(1);
    }
    /// [any thread] Real-time safe. A thread that has entered leaves.
    void leave() noexcept TQ_NONBLOCKING { change(-1); }
    /// [any thread] Who is inside now is written again.
    void rewrite() noexcept {
        BusGuard::letThrough();
        change(0);
    }

    /// [host thread] From now on the count goes into this word; the one from before stays as it is.
    void bind(std::uint32_t* word) noexcept { word_.store(word, std::memory_order_release); }
    /// [host thread] Counting ends; the next change clears the word.
    void stop() noexcept { counter_.fetch_or(kStopped); }
    /// [host thread] The word says that nobody is inside until bind() gives it back.
    void leaveWord() noexcept {
        if (std::uint32_t* const word = word_.exchange(nullptr)) {
            std::atomic_ref(*word).store(0, std::memory_order_relaxed);
        }
    }
    /// [host thread] Nobody is inside, in a process whose other threads stayed behind a fork.
    void forget() noexcept {
        word_.store(nullptr);
        counter_.fetch_and(kStopped);
    }

  private:
    static constexpr std::uint64_t kStopped = std::uint64_t{1} << 32U;
    static constexpr std::uint64_t kVersionStep = std::uint64_t{1} << 33U;

    /// [any thread] Real-time safe. Plus one for a thread that enters, minus one for one that
    /// leaves.
    void change(int step) noexcept TQ_NONBLOCKING {
        std::uint64_t state = counter_.load(std::memory_order_acquire);
        bool isFirstTry = true;
        for (;;) {
            const auto count = static_cast<std::uint32_t>(state);
            const bool isStopped = (state & kStopped) != 0;
            if (isStopped && count == 0 && isFirstTry) {
                return;
            }
            const std::uint32_t next = isStopped ? 0 : count + static_cast<std::uint32_t>(step);
            // The word first, then the counter. Stored the other way round, a thread could put an
            // old count into the word after the last change, and the word would keep it.
            if (std::uint32_t* const word = word_.load(std::memory_order_acquire)) {
                std::atomic_ref(*word).store(next, std::memory_order_relaxed);
            }
            // What overflows is the oldest part of the version.
            const std::uint64_t others = (state - count) + kVersionStep;
            if (counter_.compare_exchange_strong(state, others | next)) {
                return;
            }
            isFirstTry = false;
        }
    }

    // Render threads write the word.
    static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);

    /// Low half: threads inside. Above it whether counting has ended, and a version that every
    /// change raises.
    std::atomic<std::uint64_t> counter_{0};
    std::atomic<std::uint32_t*> word_{nullptr};
};

}  // namespace korva_audio_utils
