#include "hook/rebind/HeldImages.h"

#include "hook/elf/LoaderMemory.h"

namespace tqhook {

namespace {

bool isMapOf(const void* handle, const ImageLayout& image) {
    const auto* map = static_cast<const link_map*>(handle);
    return loaderDynamicOf(map) == image.dynamic.begin && loaderBaseOf(map) == image.base;
}

}  // namespace

HeldImages::~HeldImages() {
    for (void* handle : handles_) {
        dlclose(handle);
    }
    dlerror();
}

bool HeldImages::hold(const ImageLayout& image) {
    if (image.name.empty()) {
        return false;
    }
    void* handle = calls_.open(image.name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return false;
    }
    handles_.push_back(handle);
    // Another image may have taken the name meanwhile.
    return isMapOf(handle, image);
}

const ImageLayout* HeldImages::imageOf(const void* address) const {
    const auto found =
        std::find_if(images_.begin(), images_.end(), [address](const ImageLayout* image) {
            return image->contains(reinterpret_cast<std::uintptr_t>(address));
        });
    return found != images_.end() ? *found : nullptr;
}

void keepForever(const LoaderCalls& calls, const ImageLayout& image) {
    if (image.isMainProgram || image.name.empty()) {
        return;
    }
    void* handle = calls.open(image.name.c_str(), RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    if (handle != nullptr) {
        dlclose(handle);
    }
}

}  // namespace tqhook
