#pragma once

#include <dlfcn.h>

namespace tq::bridges {

/// A function of the image that defines `known`: the program's own copy of a native library, which
/// nobody else may have. Null when that image has none of the name. [host thread]
template <class Function>
[[nodiscard]] Function* functionBeside(const void* known, const char* name) {
    Dl_info image{};
    if (known == nullptr || dladdr(known, &image) == 0) {
        return nullptr;
    }
    void* const handle = dlopen(image.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return nullptr;
    }
    void* const found = dlsym(handle, name);
    dlclose(handle);
    return reinterpret_cast<Function*>(found);
}

/// What is known of the copy of a native library that a call goes to, by the function that was
/// redirected. `Library::of()` says whether that is real-time safe.
template <class Library, class Original>
[[nodiscard]] const Library& libraryOf(Original* original) {
    return Library::of(reinterpret_cast<const void*>(original));
}

}  // namespace tq::bridges
