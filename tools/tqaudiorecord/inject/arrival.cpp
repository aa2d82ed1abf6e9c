// Where the tap begins its work when the gate has opened it.

#include <cstdlib>

#include "inject/Tap.h"

// Not a constructor: those run under the loader's lock, which other threads may need for what the
// tap waits for.
extern "C" [[gnu::visibility("default")]] void tqaudiorecord_tap_begin(char** arguments) {
    try {
        const char* const text = std::getenv(tqrecorder::kSettingsVariable);
        const auto settings = text == nullptr ? std::nullopt : tqrecorder::settingsFromText(text);
        if (settings) {
            tqrecorder::Tap::begin(*settings, arguments);
        }
    } catch (...) {
        // No memory, no thread: the host runs as it would without us.
    }
}
