#include "hook/rebind/SlotChoice.h"

#include <algorithm>
#include <atomic>
#include <optional>

namespace tqhook {

namespace {

enum class SlotState { leave, bound, unbound };

SlotState stateOf(const ElfImage& image, const Slot& slot, const SymbolEntry& entry,
                  const void* target, const BindingOracle& oracle) {
    const void* value = slotValue(slot.address);
    // An empty slot belongs to an optional function that the program found missing: it will not
    // call it, and must not be led to believe that it could.
    if (value == nullptr || value == target) {
        return SlotState::leave;
    }
    if (entry.leadsHere(value)) {
        return SlotState::bound;
    }
    // A call slot that points back into its own image has not been bound yet. Everything else is
    // another definition of the name, another tool's function put there after ours (it leads to
    // ours in its turn), a fixed-address program's PLT entry (it jumps through a call slot that
    // is changed), or a variable that the program has since given another value.
    if (slot.kind == SlotKind::call &&
        image.layout().isCode(reinterpret_cast<std::uintptr_t>(value)) &&
        !oracle.bindsElsewhere(image, entry)) {
        return SlotState::unbound;
    }
    return SlotState::leave;
}

}  // namespace

void* slotValue(std::uintptr_t address) {
    return std::atomic_ref<void*>(*reinterpret_cast<void**>(address))
        .load(std::memory_order_acquire);
}

bool isBackend(const ElfImage& image, const SymbolTable& table) {
    return !image.layout().isMainProgram && !table.isFront(image) &&
           std::any_of(table.entries().begin(), table.entries().end(),
                       [&image](const SymbolEntry& entry) {
                           return entry.role == SymbolRole::requested &&
                                  image.definition(entry.name.c_str()).has_value();
                       });
}

std::vector<SlotWrite> chooseSlots(const ElfImage& image, const SymbolTable& table,
                                   const BindingOracle& oracle) {
    std::optional<bool> keepsItsCalls;
    std::vector<SlotWrite> writes;
    const SymbolEntry* entry = nullptr;
    void* target = nullptr;
    const auto isOurs = [&](std::size_t symbol) {
        entry = table.findWanted(image, symbol);
        if (entry == nullptr || entry->original == nullptr) {
            return false;
        }
        if (!keepsItsCalls) {
            keepsItsCalls = table.isExempt(image.layout()) || isBackend(image, table);
        }
        if (*keepsItsCalls && entry->role != SymbolRole::load) {
            return false;
        }
        target = entry->newestFor(image.layout().name, image.layout().base);
        return target != nullptr;
    };
    image.forEachSlotOf(isOurs, [&](const Slot& slot) {
        const SlotState state = stateOf(image, slot, *entry, target, oracle);
        if (state != SlotState::leave) {
            writes.push_back({slot.kind, slot.address, target, entry, state == SlotState::unbound});
        }
    });
    return writes;
}

}  // namespace tqhook
