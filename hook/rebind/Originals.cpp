#include "hook/rebind/Originals.h"

#include <algorithm>

#include "hook/rebind/SlotChoice.h"
#include "hook/rebind/SymbolTable.h"

namespace tqhook {

namespace {

const ImageLayout* imageOf(std::span<const ImageLayout* const> images, const void* address) {
    const auto found = std::find_if(images.begin(), images.end(), [address](const auto* image) {
        return image->contains(reinterpret_cast<std::uintptr_t>(address));
    });
    return found != images.end() ? *found : nullptr;
}

void* toPointer(std::uintptr_t address) {
    return reinterpret_cast<void*>(address);
}

// What a bound slot tells about its symbol; empty when it tells nothing that can be relied on.
Original originalFromSlot(std::span<const ImageLayout* const> images, const ImageLayout& owner,
                          const std::string& name, void* value) {
    const auto address = reinterpret_cast<std::uintptr_t>(value);
    // Pointing into its own image it is not bound yet.
    if (value == nullptr || owner.contains(address)) {
        return {};
    }
    const ImageLayout* target = imageOf(images, value);
    if (target == nullptr || !target->isCode(address)) {
        return {};
    }
    const ElfImage image(*target);
    if (const auto definition = image.definition(name.c_str())) {
        // Another address in the defining image is an old version of the function.
        const bool isDefinition = definition->isIndirect || definition->address == address;
        return isDefinition ? Original{value, value, false} : Original{};
    }
    if (image.canonicalStub(name) == address) {
        return {};
    }
    return {value, nullptr, false};
}

}  // namespace

bool isCanonicalStub(std::span<const ImageLayout* const> images, const std::string& name,
                     const void* address) {
    const ImageLayout* target = imageOf(images, address);
    return target != nullptr &&
           ElfImage(*target).canonicalStub(name) == reinterpret_cast<std::uintptr_t>(address);
}

std::vector<Original> findOriginals(std::span<const ImageLayout* const> callers,
                                    std::span<const ImageLayout* const> images,
                                    std::span<const std::string> names) {
    std::vector<SymbolEntry> wanted(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        wanted[i].name = names[i];
    }
    const SymbolTable table(std::move(wanted), nullptr);
    std::vector<Original> originals(names.size());
    for (const ImageLayout* layout : callers) {
        const ElfImage image(*layout);
        image.forEachSlot([&](const Slot& slot) {
            const SymbolEntry* entry =
                slot.kind == SlotKind::data ? nullptr : table.findWanted(image, slot.symbol);
            if (entry == nullptr) {
                return;
            }
            Original& original =
                originals[static_cast<std::size_t>(entry - table.entries().data())];
            if (original.function == nullptr) {
                original = originalFromSlot(images, *layout, entry->name, slotValue(slot.address));
            }
        });
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        Original& original = originals[i];
        for (const ImageLayout* layout : callers) {
            if (original.definition != nullptr) {
                break;
            }
            if (const auto definition = ElfImage(*layout).definition(names[i].c_str())) {
                original.definition = toPointer(definition->address);
                original.isIndirect = definition->isIndirect;
            }
        }
        if (original.function == nullptr) {
            original.function = original.definition;
        } else if (original.definition == nullptr) {
            // Offered under an old version only, or hidden since: what callers reach is it.
            original.definition = original.function;
        }
    }
    return originals;
}

}  // namespace tqhook
