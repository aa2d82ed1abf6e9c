#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/ProgramRunner.h"

// Runs a host of hosts/ as a process of its own and tells what the device played.

namespace hostruns {

enum class With {
    Nothing,        ///< the platform alone
    Hooks,          ///< the library preloaded, its hooks armed, nobody recording
    Recording,      ///< the same, recorded from before its first call to behind its last
    HooksLate,      ///< loaded where the host calls HostDevice::openLibrary()
    RecordingLate,  ///< loaded there, recorded from there on
};

struct HostRun {
    tqtest::ProgramEnd end;
    std::vector<float> played;  ///< first channel, every slice
    /// Tracks by number and the mix (number 0), first channel, 16-bit samples.
    std::map<int, std::vector<std::int16_t>> recorded;
    std::string events;  ///< "category code message" lines

    [[nodiscard]] float peak() const;
};

/// `host` is the name of the file in hosts/, without .cpp; `environment` is for it alone.
[[nodiscard]] HostRun run(const std::string& host, With with,
                          const std::map<std::string, std::string>& environment = {});

/// Fails unless the device played the same samples, and not silence only.
void expectSamePlayed(const HostRun& plain, const HostRun& captured, const std::string& what);
/// The same for a host, without the library and with it.
void expectPlaysTheSame(const std::string& host, With with);
/// Without the library and with it, recorded and not.
void expectTheHostPlaysOn(const std::string& host);

/// Whether those frames lie in `track` as they were played, sample for sample and without a gap.
[[nodiscard]] bool holds(const std::vector<std::int16_t>& track, const std::vector<float>& played,
                         std::size_t from, std::size_t frames);

}  // namespace hostruns
