// Loaded in front of a host's own libraries by the recorder's LD_PRELOAD, and so into everything
// that the host starts: it brings the tap, and the capture library with it, only where there may be
// sound.

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "inject/HostImage.h"
#include "ipc/TapSettings.h"

namespace {

void openTap(char** arguments) {
    const char* const text = std::getenv(tqrecorder::kSettingsVariable);
    const auto settings = text == nullptr ? std::nullopt : tqrecorder::settingsFromText(text);
    if (!settings) {
        return;
    }
    // A shell, or a tool that a script calls, is none of our business, and what a sound server
    // plays is recorded of its clients.
    if (!tqrecorder::isCommand(*settings) &&
        (tqrecorder::isServing() ||
         (!tqrecorder::isInterpreter() && !tqrecorder::mayHaveSound()))) {
        return;
    }
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void*>(&openTap), &self) == 0) {
        return;
    }
    // The list may have named a link to us.
    const auto folder = std::filesystem::canonical(self.dli_fname).parent_path();
    void* const tap = dlopen((folder / tqrecorder::kTapName).c_str(), RTLD_NOW | RTLD_GLOBAL);
    void* const begin = tap == nullptr ? nullptr : dlsym(tap, tqrecorder::kTapBeginName);
    if (begin != nullptr) {
        reinterpret_cast<void (*)(char**)>(begin)(arguments);
    }
}

[[gnu::constructor]] void begin(int /*count*/, char** arguments, char** /*environment*/) {
    try {
        openTap(arguments);
    } catch (...) {
        // No memory: the host runs as it would without us.
    }
    // A host that reads it must not find our failure there.
    dlerror();
}

}  // namespace
