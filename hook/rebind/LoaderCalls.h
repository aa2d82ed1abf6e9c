#pragma once

#include <dlfcn.h>

#include <array>
#include <cstddef>

namespace tqhook {

/// The loader's functions as they were before any of ours stood in for them. Code of this library
/// reaches the loader through these only: where it is linked into a program, the program's own
/// slots lead to the stand-ins.
struct LoaderCalls {
    void* (*open)(const char* name, int flags);
    void* (*openIn)(Lmid_t space, const char* name, int flags);
    void* (*symbol)(void* handle, const char* name);
    void* (*versionedSymbol)(void* handle, const char* name, const char* version);
};

/// A loader function that is watched.
struct LoaderSymbol {
    const char* name;
    void* standIn;  ///< takes the caller's place in front of the real one
    void** real;    ///< read by the stand-in; filled before any slot leads there
    bool loadsImages;
};

[[nodiscard]] const std::array<LoaderSymbol, 4>& loaderSymbols();

/// [host thread] Null when the process has no dynamic loader to speak of. At any time; takes none
/// of the loader's locks that a load-time constructor is called under.
[[nodiscard]] const LoaderCalls* loaderCalls();

}  // namespace tqhook
