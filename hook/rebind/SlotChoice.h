#pragma once

#include <cstdint>
#include <vector>

#include "hook/elf/ElfImage.h"
#include "hook/rebind/SymbolTable.h"

namespace tqhook {

/// A slot that is to hold something else.
struct SlotWrite {
    SlotKind kind = SlotKind::call;
    std::uintptr_t address = 0;
    void* value = nullptr;
    const SymbolEntry* entry = nullptr;
    bool wasUnbound = false;  ///< lazy binding may still store its own answer over ours
};

/// What is asked about lazily bound slots: which definition the loader will choose.
class BindingOracle {
  public:
    virtual ~BindingOracle() = default;
    /// True when the loader will bind the image's slot to a definition that is not ours to
    /// redirect: a second library that happens to use the same name.
    [[nodiscard]] virtual bool bindsElsewhere(const ElfImage& image,
                                              const SymbolEntry& entry) const = 0;
};

/// Whether the image supplies functions that callers redirect. Such an image keeps its inner
/// calls; only its loading of further images is watched. The main program is never one: what it
/// exports by accident must not make it deaf. Nor is an image that was named as a front.
[[nodiscard]] bool isBackend(const ElfImage& image, const SymbolTable& table);

/// The slots of an image that must change. Reads the slots, changes nothing.
[[nodiscard]] std::vector<SlotWrite> chooseSlots(const ElfImage& image, const SymbolTable& table,
                                                 const BindingOracle& oracle);

/// What a slot holds now. Atomic, since the loader may be writing it.
[[nodiscard]] void* slotValue(std::uintptr_t address);

}  // namespace tqhook
