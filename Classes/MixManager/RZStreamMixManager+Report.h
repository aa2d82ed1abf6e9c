#pragma once

#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "tq_events.h"

/// The source path as the records of the manager spell it.
inline constexpr const char* kMixManagerFile = "Classes/MixManager/RZStreamMixManager";

template <class... Arguments>
void RZStreamMixManager::report(const RZLogSite& site, int level, std::uint64_t category,
                                std::uint64_t code, const RZLogFormat& format,
                                const Arguments&... arguments) {
    const std::string message = RZFormat(format.text, arguments...);
    site.write(level, format.line, message);
    onAudioRecordEvent(category, code, message);
}
