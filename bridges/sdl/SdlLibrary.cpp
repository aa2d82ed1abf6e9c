#include "bridges/sdl/SdlLibrary.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "bridges/core/LibraryOf.h"
#include "common/ForkLocks.h"

namespace tq::bridges {
namespace {

/// Drivers of SDL that play to no other interface.
constexpr std::array<std::string_view, 2> kOwnDrivers{"dummy", "disk"};

}  // namespace

const SdlLibrary& SdlLibrary::of(const void* known) {
    // Writer: under the lock, the library before the function, and neither ever again. Readers:
    // acquire on the function.
    struct Place {
        std::atomic<const void*> function{nullptr};
        const SdlLibrary* library = nullptr;
    };
    // More than there are redirected functions, each of which leads to one place.
    static std::array<Place, 32> places;
    static std::mutex lock;
    static tqcommon::ForkLock atFork(tqcommon::ForkOrder::NativeStreams, lock);
    static auto* const libraries = new std::vector<std::unique_ptr<SdlLibrary>>;
    for (const Place& place : places) {
        if (place.function.load(std::memory_order_acquire) == known) {
            return *place.library;
        }
    }
    // Without the lock: it asks the loader, whose lock another caller may hold.
    std::unique_ptr<SdlLibrary> library(new SdlLibrary(known));
    const std::scoped_lock guard(lock);
    auto found = std::find_if(libraries->begin(), libraries->end(),
                              [&](const auto& other) { return other->base_ == library->base_; });
    if (found == libraries->end()) {
        found = libraries->insert(found, std::move(library));
    }
    for (Place& place : places) {
        if (place.function.load(std::memory_order_relaxed) == nullptr) {
            place.library = found->get();
            place.function.store(known, std::memory_order_release);
            break;
        }
    }
    return **found;
}

SdlLibrary::SdlLibrary(const void* known) {
    Dl_info image{};
    void* loaded = nullptr;
    if (dladdr1(known, &image, &loaded, RTLD_DL_LINKMAP) == 0) {
        return;
    }
    base_ = image.dli_fbase;
    // Only the main program has no name in the loader's list.
    keepsItsCalls_ = *static_cast<const link_map*>(loaded)->l_name != '\0';
    currentDriver_ =
        functionBeside<decltype(SDL_GetCurrentAudioDriver)>(known, "SDL_GetCurrentAudioDriver");
    driverName_ = functionBeside<char*(char*, int)>(known, "SDL_AudioDriverName");
    lock_ = functionBeside<decltype(SDL_LockAudioDevice)>(known, "SDL_LockAudioDevice");
    unlock_ = functionBeside<decltype(SDL_UnlockAudioDevice)>(known, "SDL_UnlockAudioDevice");
    hint_ = functionBeside<decltype(SDL_GetHint)>(known, "SDL_GetHint");
    lastError_ = functionBeside<decltype(SDL_GetError)>(known, "SDL_GetError");
    fail_ = functionBeside<decltype(SDL_Error)>(known, "SDL_Error");
    if (currentDriver_ != nullptr && lock_ != nullptr && unlock_ != nullptr && fail_ != nullptr) {
        version_ = Version::kTwo;
        hasQueues_ = functionBeside<void>(known, "SDL_QueueAudio") != nullptr;
    } else if (driverName_ != nullptr) {
        version_ = Version::kOne;
    }
}

std::string SdlLibrary::driver() const {
    if (version_ == Version::kOne) {
        std::array<char, 64> name{};
        return driverName_(name.data(), static_cast<int>(name.size())) == nullptr ? ""
                                                                                  : name.data();
    }
    const char* const name = currentDriver_ == nullptr ? nullptr : currentDriver_();
    return name == nullptr ? "" : name;
}

bool SdlLibrary::isServed() const {
    if (version_ == Version::kOther || playsThroughNewer()) {
        return false;
    }
    if (keepsItsCalls_) {
        return true;
    }
    const std::string name = driver();
    return name.empty() ||
           std::find(kOwnDrivers.begin(), kOwnDrivers.end(), name) != kOwnDrivers.end();
}

/// A stand-in for version 2 has made version 3 ready, whose own calls are redirected. Only that one
/// has a driver then, as no program uses both.
bool SdlLibrary::playsThroughNewer() {
    void* const newer = dlopen("libSDL3.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (newer == nullptr) {
        return false;
    }
    const auto driver = reinterpret_cast<decltype(&SDL_GetCurrentAudioDriver)>(
        dlsym(newer, "SDL_GetCurrentAudioDriver"));
    dlclose(newer);
    return driver != nullptr && driver() != nullptr;
}

std::string SdlLibrary::lastError() const {
    const char* const text = lastError_ == nullptr ? nullptr : lastError_();
    return text == nullptr || *text == '\0' ? "error" : text;
}

std::string SdlLibrary::streamName() const {
    for (const char* const hint :
         {"SDL_AUDIO_DEVICE_STREAM_NAME", "SDL_AUDIO_DEVICE_APP_NAME", "SDL_APP_NAME"}) {
        const char* const name = hint_ == nullptr ? nullptr : hint_(hint);
        if (name != nullptr && *name != '\0') {
            return name;
        }
    }
    return {};
}

}  // namespace tq::bridges
