#pragma once

#include <cstddef>
#include <cstdint>

// Beside the crash guard's two files lies a third one: a record for each process that counts. It
// tells a process that died inside from one that plays on, ended in order or was ended from
// outside.

namespace tqcommon {

struct GuardRecord {
    std::uint32_t process = 0;    ///< 0 for a record that is free
    std::uint32_t callbacks = 0;  ///< threads inside callbacks; of record 0 the count file says it
    std::uint32_t roads = 0;      ///< threads inside the library's other code that a host may call
    std::uint32_t excused = 0;    ///< not 0: whoever ends the process means to, it is no crash
    std::uint64_t started = 0;    ///< processStart() of the process
    std::uint64_t image = 0;      ///< which run of which program, as exec tells them apart
};
static_assert(sizeof(GuardRecord) == 32);

inline constexpr const char* kGuardRecordsFile = "korva_audio_hook_processes.flag";
inline constexpr std::size_t kGuardRecords = 64;

}  // namespace tqcommon
