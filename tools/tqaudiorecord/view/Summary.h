#pragma once

#include <string>
#include <vector>

#include "output/files/FileSeries.h"
#include "view/Observer.h"

namespace tqrecorder {

/// "  track 2 (music): 48000 Hz, 16-bit integer, stereo, 3.00 s, peak -1.0 dBFS, RMS -9.0 dBFS".
[[nodiscard]] std::string sourceLine(int track, const SourceState& source);
/// "out.wav (44100 Hz, 16-bit integer, stereo, 3.00 s)".
[[nodiscard]] std::string fileLine(const WrittenFile& file);
/// One line each.
[[nodiscard]] std::string fileLines(const std::vector<WrittenFile>& files);

/// The text at the end of a recording, in lines: processes, tracks, events, files, problems.
[[nodiscard]] std::string summaryText(const Observer& observer,
                                      const std::vector<WrittenFile>& files,
                                      const std::vector<std::string>& otherFiles,
                                      const std::vector<std::string>& problems,
                                      const std::vector<std::string>& silence);

}  // namespace tqrecorder
