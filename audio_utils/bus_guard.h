#pragma once

#include <cstddef>

namespace korva_audio_utils {

/// While it lives, an access to the mapping that the file no longer backs (somebody has cut the
/// file short, or the disk is full) does not kill the process: the first one turns the mapping into
/// zeroed memory of the process's own, and the access is repeated there.
///
/// The first guard of a process installs a handler of SIGBUS. What is not about a guarded mapping
/// goes on to whoever had the signal before. A program that takes SIGBUS later has it to itself.
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

    /// Whether the mapping has been taken off its file.
    [[nodiscard]] bool isCutOff() const noexcept;

  private:
    int slot_ = -1;
};

}  // namespace korva_audio_utils
