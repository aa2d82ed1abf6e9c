// Devices that are heard live in a module beside this library, loaded when one is first wanted.

#include <dlfcn.h>

#include <exception>
#include <filesystem>
#include <string>

#include "device/backends/Backends.h"
#include "device/backends/HandoverBackend.h"

namespace tqplatform {

namespace {

constexpr const char* kModule = "libtqdevice-cubeb.so.1";
constexpr const char* kMakeName = "tqdevice_make";

using Make = void (*)(const char*, std::unique_ptr<HeardDevice>*);

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

/// Null when the module is not there, or a library that it needs.
Make loadModule() {
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void*>(&loadModule), &self) == 0) {
        return nullptr;
    }
    const auto folder = std::filesystem::canonical(self.dli_fname).parent_path();
    keepHooksOut();
    void* const library = dlopen((folder / kModule).c_str(), RTLD_NOW | RTLD_NODELETE);
    void* const make = library == nullptr ? nullptr : dlsym(library, kMakeName);
    // The program must not find our failure there.
    dlerror();
    return reinterpret_cast<Make>(make);
}

std::unique_ptr<HeardDevice> makeHeard(const char* kind) {
    std::unique_ptr<HeardDevice> made;
    try {
        if (static const Make make = loadModule(); make != nullptr) {
            make(kind, &made);
        }
    } catch (const std::exception&) {
        // No folder, no memory: no device.
    }
    return made;
}

std::unique_ptr<Backend> makeCubeb(const char* name, const char* kind) {
    return std::make_unique<HandoverBackend>(
        name, [kind] { return makeHeard(kind); }, makeNullBackend());
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
