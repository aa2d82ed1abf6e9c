// Devices that are heard live in a module beside this library, loaded when one is first wanted.

#include <TQPlatform/Devices.h>
#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "common/NeverDestroyed.h"
#include "common/SignalsBlocked.h"
#include "device/backends/Backends.h"
#include "device/handover/HandoverBackend.h"

namespace tqplatform {

namespace {

constexpr const char* kModule = "libtqdevice-cubeb.so.1";
constexpr std::chrono::seconds kLongestListing{1};

/// What the module offers; all null when it is not there.
struct Module {
    void (*make)(const char* kind, std::unique_ptr<HeardDevice>* made);
    HeardListing list;
    void (*watchSleep)(std::unique_ptr<SleepWatch>* made);
};

/// A bridge would take what the module and its library do for the program's doing, and record what
/// is played a second time. Before it is loaded: calls that were redirected stay so.
void keepHooksOut() {
    void* const hooks = dlopen("libtqhook.so.1", RTLD_NOW | RTLD_NOLOAD);
    if (hooks == nullptr) {
        return;
    }
    using Exempt = int (*)(const char*);
    if (void* const exempt = dlsym(hooks, "tqhook_exempt_images")) {
        for (const char* const image : {"libcubeb.so*", "libtqdevice-cubeb.so*"}) {
            static_cast<void>(reinterpret_cast<Exempt>(exempt)(image));
        }
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

/// Throws where the file system does. Nobody waits for another who loads it: a constructor, which
/// holds the loader, would wait for who waits for the loader.
std::shared_ptr<const Module> theModule() {
    static tqcommon::NeverDestroyed<std::atomic<std::shared_ptr<const Module>>> known;
    std::shared_ptr<const Module> module = known->load();
    if (module == nullptr) {
        module = std::make_shared<const Module>(loadModule());
        known->store(module);
    }
    return module;
}

std::unique_ptr<HeardDevice> makeHeard(const char* kind) {
    std::unique_ptr<HeardDevice> made;
    try {
        if (const auto module = theModule(); module->make != nullptr) {
            module->make(kind, &made);
        }
    } catch (const std::exception&) {
        // No folder, no memory: no device.
    }
    return made;
}

std::unique_ptr<SleepWatch> makeSleepWatch() {
    std::unique_ptr<SleepWatch> made;
    try {
        if (const auto module = theModule(); module->watchSleep != nullptr) {
            module->watchSleep(&made);
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

/// What a thread of its own learns from a server, which may stand still for ever; kept by whoever
/// is last.
struct Listing {
    struct Row {
        TQDeviceDescription described;
        std::string server, name, title;
    };
    /// [any thread] One more; its texts live as long as the list does.
    void add(const TQDeviceDescription& device) {
        Row& row = rows.emplace_back(Row{device, device.server, device.name, device.title});
        row.described.server = row.server.c_str();
        row.described.name = row.name.c_str();
        row.described.title = row.title.c_str();
    }

    std::deque<Row> rows;  ///< the thread's until it is over
    std::mutex mutex;
    std::condition_variable over;
    bool isOver = false;
    bool isListed = false;
};

/// Throws where there is no thread. Null when no server or driver answers within a second.
std::shared_ptr<const Listing> listed(HeardListing list, const std::string& kind) {
    const auto listing = std::make_shared<Listing>();
    const auto ask = [=] {
        bool isListed = false;
        try {
            const auto add = [](void* rows, const TQDeviceDescription* device) {
                static_cast<Listing*>(rows)->add(*device);
            };
            isListed = list(kind.c_str(), add, listing.get());
        } catch (const std::exception&) {
            // No memory: as if none answered.
        }
        const std::lock_guard lock(listing->mutex);
        listing->isListed = isListed;
        listing->isOver = true;
        listing->over.notify_all();
    };
    {
        const tqcommon::SignalsBlocked blocked;
        std::thread(ask).detach();
    }
    std::unique_lock lock(listing->mutex);
    listing->over.wait_for(lock, kLongestListing, [&] { return listing->isOver; });
    return listing->isListed ? listing : nullptr;
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
        const auto module = tqplatform::theModule();
        const auto listing =
            module->list == nullptr ? nullptr : tqplatform::listed(module->list, kind);
        if (listing == nullptr) {
            return kAudioUnitErr_FailedInitialization;
        }
        for (const auto& row : listing->rows) {
            each(refCon, &row.described);
        }
        return noErr;
    } catch (const std::exception&) {
        return kAudioUnitErr_FailedInitialization;
    }
}
