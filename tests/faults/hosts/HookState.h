#pragma once

#include <dlfcn.h>

/// Asks the capture library by its symbols, if it is in the process: a host has no headers of it.
inline const char* hookState() {
    void* const shared = dlsym(RTLD_DEFAULT, "_ZN22RZStreamCollectManager13sharedManagerEv");
    void* const started = dlsym(RTLD_DEFAULT, "_ZNK22RZStreamCollectManager13isHookStartedEv");
    if (shared == nullptr || started == nullptr) {
        return "absent";
    }
    const void* const manager = reinterpret_cast<void* (*)()>(shared)();
    return reinterpret_cast<bool (*)(const void*)>(started)(manager) ? "started" : "out";
}
