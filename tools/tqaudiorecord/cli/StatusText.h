#pragma once

#include <string>
#include <vector>

#include "output/files/FileSeries.h"
#include "view/Observer.h"

namespace tqrecorder {

/// How a running recording stands, in lines for people or as one JSON object: elapsed_seconds,
/// paused, sources (process, pid, track, name, seconds, peak_dbfs; the mix is track 0, silence has
/// no peak), lost_blocks, files (path, seconds). Of more than an answer holds the object has
/// files_omitted and sources_omitted, numbers of those left out.
[[nodiscard]] std::string statusText(const Observer& observer,
                                     const std::vector<WrittenFile>& files, bool isPaused,
                                     bool asJson);

/// What a running recording has, a line for each source below its process, under headings.
[[nodiscard]] std::string listText(const Observer& observer, bool isPaused);

}  // namespace tqrecorder
