#include "device/handover/LoaderLock.h"

#include <dlfcn.h>

#include <chrono>

#include "device/handover/HeardThread.h"

namespace tqplatform {

bool isLoaderHeld() {
    constexpr std::chrono::milliseconds kPatience{500};
    HeardThread thread;
    thread.begin([] {
        if (void* const program = dlopen(nullptr, RTLD_LAZY | RTLD_NOLOAD)) {
            dlclose(program);
        }
    });
    return !thread.await(kPatience);
}

}  // namespace tqplatform
