#include "hook/rebind/SlotPatcher.h"

#include <sys/auxv.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>

namespace tqhook {

namespace {

// The loader rounds both ends down: the last, shared page stays writable.
AddressRange protectedPages(const ImageLayout& layout, std::uintptr_t page) {
    return {layout.relro.begin & ~(page - 1), layout.relro.end & ~(page - 1)};
}

bool setProtection(const AddressRange& pages, int protection) {
    return mprotect(reinterpret_cast<void*>(pages.begin), pages.end - pages.begin, protection) == 0;
}

bool isWritable(const ImageLayout& layout, std::uintptr_t address) {
    const Segment* segment = layout.segmentOf(address);
    return segment != nullptr && (segment->flags & PF_W) != 0;
}

}  // namespace

void storeSlot(std::uintptr_t address, void* value) {
    std::atomic_ref<void*>(*reinterpret_cast<void**>(address))
        .store(value, std::memory_order_release);
}

PatchResult patchSlots(const ImageLayout& layout, std::span<const SlotWrite> writes) {
    const std::uintptr_t page = getauxval(AT_PAGESZ);
    const AddressRange readOnly = protectedPages(layout, page);
    AddressRange touched{readOnly.end, readOnly.begin};
    for (const SlotWrite& write : writes) {
        if (readOnly.contains(write.address)) {
            const std::uintptr_t begin = write.address & ~(page - 1);
            touched.begin = std::min(touched.begin, begin);
            touched.end = std::max(touched.end, begin + page);
        }
    }
    const bool unlocks = touched.begin < touched.end;
    const bool unlocked = unlocks && setProtection(touched, PROT_READ | PROT_WRITE);
    for (const SlotWrite& write : writes) {
        if (readOnly.contains(write.address) ? unlocked : isWritable(layout, write.address)) {
            storeSlot(write.address, write.value);
        }
    }
    if (unlocks && !unlocked) {
        return PatchResult::refused;
    }
    return unlocked && !setProtection(touched, PROT_READ) ? PatchResult::leftWritable
                                                          : PatchResult::done;
}

}  // namespace tqhook
