// What happens when libdemo_recorder is preloaded into a host. DEMO_ARM=1 arms the host's crash
// guard and ends the process before its main(); DEMO_OUT=FOLDER records the host into that folder.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "DemoRecorder.h"

namespace {

constexpr unsigned kHookId = 1;

// Ends the recording when the host ends, before the library below it goes.
std::unique_ptr<demo::DemoRecorder> recorder;

[[noreturn]] void arm() {
    const int result = TQAudioRecordHookConfig::shared().enableHook(kHookId, true);
    if (result != 0) {
        std::fprintf(stderr, "demo recorder: the crash guard cannot be armed, code %d\n", result);
    }
    // The host must not run: its own end-of-process code is none of our business either.
    _exit(result == 0 ? 0 : 1);
}

[[gnu::constructor]] void begin() {
    const char* wantsArming = std::getenv("DEMO_ARM");
    if (wantsArming != nullptr && std::string_view(wantsArming) == "1") {
        arm();
    }
    const char* out = std::getenv("DEMO_OUT");
    if (out == nullptr || *out == '\0') {
        return;
    }
    const std::string folder = out;
    // Programs that the host starts would overwrite its files.
    unsetenv("DEMO_OUT");
    try {
        recorder = std::make_unique<demo::DemoRecorder>(folder);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "demo recorder: %s\n", problem.what());
    }
}

}  // namespace
