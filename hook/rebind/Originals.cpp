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

SymbolTable tableOf(std::span<const std::string> names) {
    std::vector<SymbolEntry> wanted(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        wanted[i].name = names[i];
    }
    return SymbolTable(std::move(wanted));
}

std::vector<ElfImage> readersOf(std::span<const ImageLayout* const> images) {
    std::vector<ElfImage> readers;
    readers.reserve(images.size());
    for (const ImageLayout* image : images) {
        readers.emplace_back(*image);
    }
    return readers;
}

}  // namespace

bool isCanonicalStub(std::span<const ImageLayout* const> images, const std::string& name,
                     const void* address) {
    const ImageLayout* target = imageOf(images, address);
    return target != nullptr &&
           ElfImage(*target).canonicalStub(name) == reinterpret_cast<std::uintptr_t>(address);
}

std::vector<std::string> namesIn(std::span<const ImageLayout* const> images,
                                 std::span<const std::string> names) {
    const SymbolTable table = tableOf(names);
    std::vector<bool> isThere(names.size());
    for (const ElfImage& image : readersOf(images)) {
        const auto note = [&](std::size_t symbol) {
            if (const SymbolEntry* entry = table.findWanted(image, symbol)) {
                isThere[static_cast<std::size_t>(entry - table.entries().data())] = true;
            }
            return false;
        };
        image.forEachSlotOf(note, [](const Slot& /*slot*/) {});
        for (std::size_t i = 0; i < names.size(); ++i) {
            isThere[i] = isThere[i] || image.offers(names[i]);
        }
    }
    std::vector<std::string> found;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (isThere[i]) {
            found.push_back(names[i]);
        }
    }
    return found;
}

std::vector<Original> findOriginals(std::span<const ImageLayout* const> callers,
                                    std::span<const ImageLayout* const> images,
                                    std::span<const std::string> names) {
    const SymbolTable table = tableOf(names);
    std::vector<Original> originals(names.size());
    const std::vector<ElfImage> readers = readersOf(callers);
    for (const ElfImage& image : readers) {
        Original* original = nullptr;
        const std::string* name = nullptr;
        const auto isUnanswered = [&](std::size_t symbol) {
            const SymbolEntry* entry = table.findWanted(image, symbol);
            if (entry != nullptr) {
                name = &entry->name;
                original = &originals[static_cast<std::size_t>(entry - table.entries().data())];
            }
            return entry != nullptr && original->function == nullptr;
        };
        image.forEachSlotOf(isUnanswered, [&](const Slot& slot) {
            if (slot.kind != SlotKind::data && original->function == nullptr) {
                *original =
                    originalFromSlot(images, image.layout(), *name, slotValue(slot.address));
            }
        });
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        Original& original = originals[i];
        for (const ElfImage& image : readers) {
            if (original.definition != nullptr) {
                break;
            }
            if (const auto definition = image.definition(names[i].c_str())) {
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
