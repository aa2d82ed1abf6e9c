#pragma once

#include <span>

#include "hook/tq_hook.h"

namespace tq::bridges {

/// One native sound interface: which of its functions are redirected, in its own folder.
struct NativeApi {
    const char* name;
    std::span<const tqhook_rebinding> rebindings;
};

// One or more for each folder beside this one.
[[nodiscard]] NativeApi alsaApi();
[[nodiscard]] NativeApi pulseApi();
[[nodiscard]] NativeApi pulseSoundApi();
[[nodiscard]] NativeApi jackApi();
[[nodiscard]] NativeApi pipeWireApi();
[[nodiscard]] NativeApi pipeWireFilterApi();
[[nodiscard]] NativeApi sdlApi();

}  // namespace tq::bridges
