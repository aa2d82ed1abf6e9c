#include "foundation/CFObject.h"

#include <mutex>
#include <unordered_map>

#include "common/ForkLocks.h"
#include "common/NeverDestroyed.h"

namespace tqplatform {
namespace {

class LiveObjects {
  public:
    void add(std::unique_ptr<CFObject> object) {
        const CFTypeRef handle = object.get();
        const std::lock_guard<std::mutex> guard(lock_);
        objects_.emplace(handle, Entry{std::move(object), 1});
    }

    [[nodiscard]] bool retain(CFTypeRef handle) {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) {
            return false;
        }
        ++found->second.references;
        return true;
    }

    /// The object when that was the last reference: its destructor may release others, so it
    /// must run without the lock.
    [[nodiscard]] std::unique_ptr<CFObject> release(CFTypeRef handle) {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto found = objects_.find(handle);
        if (found == objects_.end() || --found->second.references > 0) {
            return nullptr;
        }
        std::unique_ptr<CFObject> last = std::move(found->second.object);
        objects_.erase(found);
        return last;
    }

    [[nodiscard]] CFIndex references(CFTypeRef handle) {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto found = objects_.find(handle);
        return found != objects_.end() ? found->second.references : 0;
    }

    [[nodiscard]] CFObject* find(CFTypeRef handle, CFKind kind) {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto found = objects_.find(handle);
        const bool matches = found != objects_.end() && found->second.object->kind() == kind;
        return matches ? found->second.object.get() : nullptr;
    }

  private:
    struct Entry {
        std::unique_ptr<CFObject> object;
        CFIndex references;
    };

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Foundation, lock_};
    std::unordered_map<CFTypeRef, Entry> objects_;
};

LiveObjects& liveObjects() {
    static tqcommon::NeverDestroyed<LiveObjects> objects;
    return *objects;
}

}  // namespace

CFTypeRef handOut(std::unique_ptr<CFObject> object) {
    const CFTypeRef handle = object.get();
    liveObjects().add(std::move(object));
    return handle;
}

CFObject* findObject(CFTypeRef handle, CFKind kind) noexcept {
    return handle != nullptr ? liveObjects().find(handle, kind) : nullptr;
}

}  // namespace tqplatform

const CFAllocatorRef kCFAllocatorDefault = nullptr;
// Never looked into; any address that is not the other's would do.
const CFAllocatorRef kCFAllocatorNull = reinterpret_cast<CFAllocatorRef>(&kCFAllocatorNull);
// The last platform on which everything that is offered here was still the usual way.
const double kCFCoreFoundationVersionNumber = kCFCoreFoundationVersionNumber_iOS_8_0;

CFTypeRef CFRetain(CFTypeRef object) {
    return object != nullptr && tqplatform::liveObjects().retain(object) ? object : nullptr;
}

void CFRelease(CFTypeRef object) {
    if (object != nullptr) {
        static_cast<void>(tqplatform::liveObjects().release(object));
    }
}

CFIndex CFGetRetainCount(CFTypeRef object) {
    return object != nullptr ? tqplatform::liveObjects().references(object) : 0;
}
