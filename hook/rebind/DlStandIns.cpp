// What the assembly stand-ins ask and where they go when a call concerns us.

#include <dlfcn.h>

#include <cerrno>

#include "hook/rebind/LoaderCalls.h"
#include "hook/rebind/Rebinder.h"
#include "hook/rebind/SearchPath.h"

using tqhook::loaderCalls;
using tqhook::Rebinder;

extern "C" {

// Real-time safe: no lock, no allocation. RTLD_NEXT stays raw, since it is how other tools ask
// for the function behind their own.
int tqhook_wants_dlsym(void* handle, const char* name, const void* /*version*/,
                       const void* /*caller*/) {
    return handle != RTLD_NEXT && name != nullptr && Rebinder::shared().isRedirected(name);
}

// Without a name, or without loading, there is nothing to find afterwards; a caller outside the
// first namespace loads images that cannot be seen from here.
int tqhook_wants_dlopen(const char* name, int flags, const void* /*unused*/, const void* caller) {
    return name != nullptr && (flags & RTLD_NOLOAD) == 0 && tqhook::canLoadFor(name, caller);
}

int tqhook_wants_dlmopen(Lmid_t space, const char* name, int flags, const void* caller) {
    return space == LM_ID_BASE && tqhook_wants_dlopen(name, flags, nullptr, caller);
}

void* tqhook_dlopen(const char* name, int flags, const void* /*unused*/, const void* caller) {
    void* handle = tqhook::openFor(*loaderCalls(), name, flags, caller);
    if (handle != nullptr) {
        const int error = errno;
        Rebinder::shared().scan();
        // Some hosts read dlerror() after a success.
        dlerror();
        errno = error;
    }
    return handle;
}

void* tqhook_dlmopen(Lmid_t /*space*/, const char* name, int flags, const void* caller) {
    return tqhook_dlopen(name, flags, nullptr, caller);
}

void* tqhook_dlsym(void* handle, const char* name, const void* /*unused*/, const void* caller) {
    Rebinder& rebinder = Rebinder::shared();
    // The image may have come by a road that is not watched.
    rebinder.scan();
    const auto ask = [name](void* scope) { return loaderCalls()->symbol(scope, name); };
    void* found = tqhook::lookUpFor(*loaderCalls(), handle, caller, ask);
    return rebinder.translated(name, found, caller);
}

void* tqhook_dlvsym(void* handle, const char* name, const char* version, const void* caller) {
    Rebinder& rebinder = Rebinder::shared();
    rebinder.scan();
    const auto ask = [name, version](void* scope) {
        return loaderCalls()->versionedSymbol(scope, name, version);
    };
    void* found = tqhook::lookUpFor(*loaderCalls(), handle, caller, ask);
    return rebinder.translated(name, found, caller);
}

}  // extern "C"
