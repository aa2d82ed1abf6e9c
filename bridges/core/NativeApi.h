#pragma once

#include <span>

#include "hook/tq_hook.h"

namespace tq::bridges {

/// One native sound interface: which of its functions are redirected, in its own folder.
struct NativeApi {
    const char* name;
    std::span<const tqhook_rebinding> rebindings;
};

// One for each folder beside this one.
[[nodiscard]] NativeApi alsaApi();

}  // namespace tq::bridges
