// Devices that are heard live in a module beside this library, loaded when one is first wanted.

#include <TQPlatform/Devices.h>
#include <dlfcn.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "device/backends/Backends.h"
#include "device/backends/HandoverBackend.h"

namespace tqplatform {

namespace {

constexpr const char* kModule = "libtqdevice-cubeb.so.1";

/// What the module offers; all null when it is not there.
struct Module {
    void (*make)(const char* kind, std::unique_ptr<HeardDevice>* made);
    HeardListing list;
    void (*watchSleep)(std::unique_ptr<SleepWatch>* made);
};

/// A bridge would take what the module's library plays for a stream of the program, and record it a
/// second time. Before it is loaded: calls that were redirected stay so.
void keepHooksOut() {
    void* const hooks = dlopen("libtqhook.so.1", RTLD_NOW | RTLD_NOLOAD);
    if (hooks == nullptr) {
        return;
    }
    using Exempt = int (*)(const char*);
    if (void* const exempt = dlsym(hooks, "tqhook_exempt_images")) {
        static_cast<void>(reinterpret_cast<Exempt>(exempt)("libcubeb.so*"));
    }
    dlclose(hooks);
}

Module loadModule() {
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void*>(&loadModule), &self) == 0) {
        return {};
    }
    const auto folder = std::filesystem::canonical(self.dli_fname).parent_path();
    keepHooksOut();
    void* const library = dlopen((folder / kModule).c_str(), RTLD_NOW | RTLD_NODELETE);
    Module module{};
    if (library != nullptr) {
        module = {
            reinterpret_cast<decltype(module.make)>(dlsym(library, "tqdevice_make")),
            reinterpret_cast<decltype(module.list)>(dlsym(library, "tqdevice_list")),
            reinterpret_cast<decltype(module.watchSleep)>(dlsym(library, "tqdevice_watch_sleep"))};
    }
    // The program must not find our failure there.
    dlerror();
    return module;
}

/// Throws where the file system does.
const Module& theModule() {
    static const Module module = loadModule();
    return module;
}

std::unique_ptr<HeardDevice> makeHeard(const char* kind) {
    std::unique_ptr<HeardDevice> made;
    try {
        if (const Module& module = theModule(); module.make != nullptr) {
            module.make(kind, &made);
        }
    } catch (const std::exception&) {
        // No folder, no memory: no device.
    }
    return made;
}

std::unique_ptr<SleepWatch> makeSleepWatch() {
    std::unique_ptr<SleepWatch> made;
    try {
        if (const Module& module = theModule(); module.watchSleep != nullptr) {
            module.watchSleep(&made);
        }
    } catch (const std::exception&) {
        // No memory: a machine that sleeps is a device that stands still.
    }
    return made;
}

std::unique_ptr<Backend> makeCubeb(const char* name, const char* kind) {
    return std::make_unique<HandoverBackend>(
        name, [kind] { return makeHeard(kind); }, makeNullBackend(), makeSleepWatch);
}

}  // namespace

std::unique_ptr<Backend> makeAutomaticBackend() {
    return makeCubeb("auto", "");
}

std::unique_ptr<Backend> makeCubebBackend() {
    return makeCubeb("cubeb", "");
}

std::unique_ptr<Backend> makeCubebPulseBackend() {
    return makeCubeb("cubeb:pulse", "pulse");
}

std::unique_ptr<Backend> makeCubebAlsaBackend() {
    return makeCubeb("cubeb:alsa", "alsa");
}

std::unique_ptr<Backend> makeCubebJackBackend() {
    return makeCubeb("cubeb:jack", "jack");
}

}  // namespace tqplatform

OSStatus TQListDevices(TQDeviceListing each, void* refCon) {
    if (each == nullptr) {
        return kAudio_ParamError;
    }
    try {
        constexpr std::string_view kPrefix = "cubeb:";
        const char* const chosen = std::getenv("TQ_AUDIO_DEVICE");
        const std::string name = chosen == nullptr ? "" : chosen;
        const std::string kind = name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : "";
        const tqplatform::Module& module = tqplatform::theModule();
        const bool isListed = module.list != nullptr && module.list(kind.c_str(), each, refCon);
        return isListed ? OSStatus{noErr} : OSStatus{kAudioUnitErr_FailedInitialization};
    } catch (const std::exception&) {
        return kAudioUnitErr_FailedInitialization;
    }
}
