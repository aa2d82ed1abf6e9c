// Loaded in front of a host's own libraries by the recorder's LD_PRELOAD.

#include <cstdlib>

#include "tap/Tap.h"

namespace {

[[gnu::constructor]] void begin(int /*count*/, char** arguments, char** /*environment*/) {
    try {
        const char* const text = std::getenv(tqrecorder::kSettingsVariable);
        if (text == nullptr) {
            return;
        }
        if (const auto settings = tqrecorder::settingsFromText(text)) {
            tqrecorder::Tap::begin(*settings, arguments);
        }
    } catch (...) {
        // No memory, no thread: the host runs as it would without us.
    }
}

}  // namespace
