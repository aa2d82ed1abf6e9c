#include <RZStreamCollectManager.h>
#include <dlfcn.h>

#include <filesystem>
#include <mutex>

#include "Call.h"
#include "common/ForkLocks.h"

// The bridges are a library of their own, which this one loads when they are asked for: a program
// that does without them pays nothing for them.

namespace {

constexpr const char* kBridgeLibrary = "libTQAudioRecordBridge.so.1";
constexpr const char* kBeginName = "tqbridge_begin";

using Begin = tq_result (*)(const tq_bridges*);

/// Null when it is not beside this library.
Begin loadBridges() {
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void*>(&tq_capture_version), &self) == 0) {
        return nullptr;
    }
    const auto folder = std::filesystem::canonical(self.dli_fname).parent_path();
    void* const library = dlopen((folder / kBridgeLibrary).c_str(), RTLD_NOW | RTLD_NODELETE);
    void* const begin = library == nullptr ? nullptr : dlsym(library, kBeginName);
    // The program must not find our failure there.
    dlerror();
    return reinterpret_cast<Begin>(begin);
}

}  // namespace

tq_result tq_capture_use_bridges(const tq_bridges* bridges) {
    return tqcapi::call([&] {
        if (const tq_result result = tqcapi::checked(bridges); result != TQ_OK) {
            return result;
        }
        if (!RZStreamCollectManager::sharedManager().isHookStarted()) {
            return TQ_ERROR_HOOKS_NOT_WORKING;
        }
        static std::mutex lock;
        static tqcommon::ForkLock atFork(tqcommon::ForkOrder::Installation, lock);
        static Begin begin = nullptr;
        const std::scoped_lock guard(lock);
        if (begin == nullptr) {
            begin = loadBridges();
        }
        return begin == nullptr ? TQ_ERROR_NO_BRIDGES : begin(bridges);
    });
}
