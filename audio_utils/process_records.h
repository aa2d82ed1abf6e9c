#pragma once

#include <cstdint>
#include <optional>

#include "common/GuardRecords.h"
#include "memory_file.h"

namespace korva_audio_utils {

/// The records of the processes of one program that count, each held by its process.
///
/// A process holds its record by a lock on one byte of the file, which the kernel takes from it
/// when the process ends or turns into another program, and which a child does not inherit. Record
/// 0 belongs with the count file: its holder counts there, every other process in its own record.
///
/// [host thread] The caller holds the lock of the files, except in a child of fork().
class ProcessRecords {
  public:
    explicit ProcessRecords(MemoryFile& file) : file_(file) {}

    struct Found {
        bool isFirstHeld = false;         ///< by a process that lives
        bool isFirstADeath = true;        ///< when the count file says that somebody is inside
        std::uint32_t insideAtDeath = 0;  ///< in all records, without what the count file says
    };
    /// Looks who has died, and frees the records of all that are gone.
    Found inspect();
    /// Makes the lowest free record the process's own. Also in a child between fork and exec.
    std::optional<std::size_t> take() noexcept;

    [[nodiscard]] tqcommon::GuardRecord& at(std::size_t index) const noexcept {
        return static_cast<tqcommon::GuardRecord*>(file_.data())[index];
    }

  private:
    [[nodiscard]] bool isHeldByOther(std::size_t index) const noexcept;
    [[nodiscard]] bool lock(std::size_t index) const noexcept;

    MemoryFile& file_;
};

}  // namespace korva_audio_utils
