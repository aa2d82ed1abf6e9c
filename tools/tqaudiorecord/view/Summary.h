#pragma once

#include <string>
#include <vector>

#include "output/files/FileSeries.h"
#include "view/Observer.h"

namespace tqrecorder {

/// The text at the end of a recording, in lines: processes, tracks, events, files, problems.
[[nodiscard]] std::string summaryText(const Observer& observer,
                                      const std::vector<WrittenFile>& files,
                                      const std::vector<std::string>& otherFiles,
                                      const std::vector<std::string>& problems,
                                      const std::vector<std::string>& silence);

}  // namespace tqrecorder
