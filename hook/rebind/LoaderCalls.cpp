#include "hook/rebind/LoaderCalls.h"

#include <cstring>

#include "hook/elf/LoadedImages.h"
#include "hook/rebind/Originals.h"

extern "C" {
// The stand-ins, written in assembly: they hand the call on untouched, return address and all,
// unless it concerns us.
void* tqhook_dlopen_stand_in(const char* name, int flags);
void* tqhook_dlmopen_stand_in(Lmid_t space, const char* name, int flags);
void* tqhook_dlsym_stand_in(void* handle, const char* name);
void* tqhook_dlvsym_stand_in(void* handle, const char* name, const char* version);

// What the stand-ins jump to.
void* tqhook_real_dlopen = nullptr;
void* tqhook_real_dlmopen = nullptr;
void* tqhook_real_dlsym = nullptr;
void* tqhook_real_dlvsym = nullptr;
}

namespace tqhook {

namespace {

template <class Function>
void assign(Function& function, void* address) {
    std::memcpy(&function, &address, sizeof address);
}

struct ResolvedCalls {
    LoaderCalls calls{};
    bool complete = true;

    ResolvedCalls() {
        const LoadedImages loaded = loadedImages();
        std::vector<const ImageLayout*> startup;
        const std::size_t count = loaded.startupCount();
        for (std::size_t i = 0; i < count; ++i) {
            startup.push_back(&loaded.images[i]);
        }
        std::vector<std::string> names;
        for (const LoaderSymbol& symbol : loaderSymbols()) {
            names.emplace_back(symbol.name);
        }
        const std::vector<Original> originals = findOriginals(startup, startup, names);
        for (std::size_t i = 0; i < originals.size(); ++i) {
            *loaderSymbols()[i].real = originals[i].function;
            complete = complete && originals[i].function != nullptr;
        }
        assign(calls.open, tqhook_real_dlopen);
        assign(calls.openIn, tqhook_real_dlmopen);
        assign(calls.symbol, tqhook_real_dlsym);
        assign(calls.versionedSymbol, tqhook_real_dlvsym);
    }
};

}  // namespace

const std::array<LoaderSymbol, 4>& loaderSymbols() {
    static const std::array<LoaderSymbol, 4> symbols{{
        {"dlopen", reinterpret_cast<void*>(&tqhook_dlopen_stand_in), &tqhook_real_dlopen, true},
        {"dlmopen", reinterpret_cast<void*>(&tqhook_dlmopen_stand_in), &tqhook_real_dlmopen, true},
        {"dlsym", reinterpret_cast<void*>(&tqhook_dlsym_stand_in), &tqhook_real_dlsym, false},
        {"dlvsym", reinterpret_cast<void*>(&tqhook_dlvsym_stand_in), &tqhook_real_dlvsym, false},
    }};
    return symbols;
}

const LoaderCalls* loaderCalls() {
    static const ResolvedCalls resolved;
    return resolved.complete ? &resolved.calls : nullptr;
}

}  // namespace tqhook
