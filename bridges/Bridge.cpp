// Where the capture library enters when somebody asks for the bridges.

#include <TQAudioRecord/tq_capture.h>

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <vector>

#include "bridges/core/NativeApi.h"
#include "bridges/core/NativeStream.h"
#include "common/ForkLocks.h"

using namespace tq::bridges;

namespace {

/// The platform exempts it and its library itself when it loads the module behind the bridges.
constexpr const char* kDeviceModule = "libtqdevice-cubeb.so.1";

}  // namespace

/// Redirects the functions of every native interface in one pass over the loaded images. What is
/// loaded later follows by itself.
extern "C" [[gnu::visibility("default")]] tq_result tqbridge_begin(const tq_bridges* bridges) {
    static std::once_flag once;
    static tq_result result = TQ_OK;
    std::call_once(once, [bridges] {
        NativeStream::attend(*bridges);
        // Later than the libraries below, so that a fork takes the bridges' locks before theirs.
        tqcommon::ForkLock::watch();
        std::vector<tqhook_rebinding> rows;
        for (const NativeApi& api : {alsaApi(), pulseApi(), pulseSoundApi(), jackApi(),
                                     pipeWireApi(), pipeWireFilterApi(), sdlApi()}) {
            rows.insert(rows.end(), api.rebindings.begin(), api.rebindings.end());
        }
        // Version 3 of SDL bears names of version 2, and is recorded at the interface below.
        (void)tqhook_front_images("SDL_OpenAudioDeviceStream");
        // The platform's own device plays what its units render: no stream of the program.
        if (void* const device = dlopen(kDeviceModule, RTLD_NOW | RTLD_NOLOAD)) {
            (void)tqhook_exempt_images("libcubeb.so*");
            (void)tqhook_exempt_images("libtqdevice-cubeb.so*");
            dlclose(device);
        }
        tqhook_options options{};
        options.size = sizeof options;
        options.exemptsOwnImages = 1;
        if (tqhook_rebind(rows.data(), rows.size(), &options) != 0) {
            result = TQ_ERROR_HOOKS_NOT_WORKING;
            return;
        }
        // What streams have left when the process ends in order is still recorded.
        (void)std::atexit(&NativeStream::finish);
    });
    return result;
}
