#pragma once

#include <link.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tqhook {

// The loader's records of images: names, link maps, copies of program headers. The loader writes
// and frees them on whatever thread calls dlopen() or dlclose(), under a lock of its own that is
// also held while dl_iterate_phdr() shows them and while we hold an image. The thread sanitizer
// sees none of that order, and whether it reports a race depends on how long a name happens to be.
// So these records are read here and nowhere else: in functions that are not watched and that call
// nothing which is (strlen() and memcpy() would be).
#define TQHOOK_UNWATCHED __attribute__((no_sanitize("thread")))

/// The length of one of the loader's texts; 0 for none.
TQHOOK_UNWATCHED inline std::size_t loaderTextLength(const char* text) {
    std::size_t length = 0;
    // Volatile, or the compiler would make a call of strlen() out of it.
    for (const volatile char* at = text; at != nullptr && *at != '\0'; ++at) {
        ++length;
    }
    return length;
}

/// Copies `count` elements of the loader's.
template <class T>
TQHOOK_UNWATCHED void copyFromLoader(T* target, const T* source, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        target[i] = source[i];
        // Keeps the loop from becoming a call of memcpy().
        asm volatile("" ::: "memory");
    }
}

/// A link map's name; empty for the main program and for no map.
TQHOOK_UNWATCHED inline std::string loaderNameOf(const link_map* map) {
    const char* name = map != nullptr ? map->l_name : nullptr;
    std::string text(loaderTextLength(name), '\0');
    copyFromLoader(text.data(), name, text.size());
    return text;
}

TQHOOK_UNWATCHED inline std::uintptr_t loaderBaseOf(const link_map* map) {
    return map->l_addr;
}

TQHOOK_UNWATCHED inline std::uintptr_t loaderDynamicOf(const link_map* map) {
    return reinterpret_cast<std::uintptr_t>(map->l_ld);
}

}  // namespace tqhook
