#pragma once

#include <span>

#include "hook/rebind/SlotChoice.h"

namespace tqhook {

enum class PatchResult {
    done,
    refused,      ///< memory could not be made writable: nothing was stored in it
    leftWritable  ///< stored, but memory could not be protected again
};

/// Stores the writes into the image's slots. Memory that the loader made read-only after
/// relocation is made writable for the stores, page-wise, and read-only again. Slots in segments
/// that were never writable are left. Callers serialise calls for one image.
[[nodiscard]] PatchResult patchSlots(const ImageLayout& layout, std::span<const SlotWrite> writes);

/// Stores one value that other threads may be jumping through.
void storeSlot(std::uintptr_t address, void* value);

}  // namespace tqhook
