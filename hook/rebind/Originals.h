#pragma once

#include <span>
#include <string>
#include <vector>

#include "hook/elf/ElfImage.h"

namespace tqhook {

/// What calls of a symbol reach before we step in.
struct Original {
    /// What to call: the true definition, or another tool's function when that tool has redirected
    /// callers already. Never a PLT entry: one of those would lead through the slot that is about
    /// to change, back to the replacement.
    void* function = nullptr;
    void* definition = nullptr;  ///< the true definition
    bool isIndirect = false;     ///< `definition` still is the function that answers the real one
};

/// Finds, per name (each named once), what calls reach: the first bound slot of `callers` in load
/// order that leads into one of `images` tells, else the first definition in `callers`. Only reads;
/// takes no lock. The images must stay loaded.
[[nodiscard]] std::vector<Original> findOriginals(std::span<const ImageLayout* const> callers,
                                                  std::span<const ImageLayout* const> images,
                                                  std::span<const std::string> names);

/// Those of the names that one of the images offers or has a slot for: nobody can find another one
/// there, and asking the loader for each costs more than all the rest.
[[nodiscard]] std::vector<std::string> namesIn(std::span<const ImageLayout* const> images,
                                               std::span<const std::string> names);

/// Whether `address` is the PLT entry that a fixed-address program offers in place of `name`.
[[nodiscard]] bool isCanonicalStub(std::span<const ImageLayout* const> images,
                                   const std::string& name, const void* address);

}  // namespace tqhook
