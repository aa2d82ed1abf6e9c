#pragma once

#include <cstddef>

namespace korva_audio_utils {

/// While it lives, an access to the mapping that the file no longer backs (somebody has cut the
/// file short, or the disk is full) does not kill the process: the first one turns the mapping into
/// zeroed memory of the process's own, and the access is repeated there.
///
/// The first guard of a process installs a handler of SIGBUS. What is not about a guarded mapping
/// goes on to whoever had the signal before, or takes it later by busHandlerCalls().
/// The kernel ends a process whose access fails on a thread that blocks the signal, so each thread
/// lets it through before its first access.
///
/// [any thread] for construction and destruction; at most kMaxMappings live at a time, further ones
/// guard nothing.
class BusGuard {
  public:
    static constexpr std::size_t kMaxMappings = 16;

    BusGuard() = default;
    BusGuard(void* data, std::size_t size) noexcept;
    ~BusGuard();
    BusGuard(BusGuard&& other) noexcept;
    BusGuard& operator=(BusGuard&& other) noexcept;
    BusGuard(const BusGuard&) = delete;
    BusGuard& operator=(const BusGuard&) = delete;

    /// [any thread] The calling thread does not block SIGBUS from here on. Real-time safe; the
    /// first call of a thread changes its signal mask.
    static void letThrough() noexcept {
        if (!isLetThrough) [[unlikely]] {
            unblock();
        }
    }

    /// [any thread] The calling thread may block SIGBUS from here on; the next letThrough() sees to
    /// it.
    static void mayBlockAgain() noexcept { isLetThrough = false; }

    /// Whether the mapping has been taken off its file.
    [[nodiscard]] bool isCutOff() const noexcept;

  private:
    static void unblock() noexcept;

    // Initial-exec: reading it on a render thread for the first time must not allocate.
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local bool isLetThrough =
        false;

    int slot_ = -1;
};

}  // namespace korva_audio_utils
