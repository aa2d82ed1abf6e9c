// Where the platform enters this module.

#include <dlfcn.h>

#include "CubebDevice.h"

namespace {

/// A bridge would take what we play for a stream of the program and record it a second time.
void keepHooksOut() {
    void* const library = dlopen("libtqhook.so.1", RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) {
        return;
    }
    using Exempt = int (*)(const char*);
    if (void* const exempt = dlsym(library, "tqhook_exempt_images")) {
        static_cast<void>(reinterpret_cast<Exempt>(exempt)("libcubeb.so*"));
    }
    dlclose(library);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void tqdevice_make(
    const char* kind, std::unique_ptr<tqplatform::HeardDevice>* made) {
    keepHooksOut();
    *made = std::make_unique<tqcubeb::CubebDevice>(kind);
}
