#pragma once

#include <string>
#include <vector>

#include "view/Observer.h"

namespace tqrecorder {

/// What is asked of a process that the recorder did not get into, before it is named.
enum class Evidence {
    kOfSound,      ///< it has a library for sound loaded, or a raw device open
    kOfAnyReason,  ///< or something is known that kept the recorder out
};

/// Processes that were seen and not recorded, why and what to do, one line without its end each,
/// the first of them.
[[nodiscard]] std::vector<std::string> unrecordedProcessLines(const Observer& observer,
                                                              Evidence evidence);

/// That a process plays to a device past all libraries, as a clause.
[[nodiscard]] std::string rawDeviceText(const SeenProcess& seen);

}  // namespace tqrecorder
