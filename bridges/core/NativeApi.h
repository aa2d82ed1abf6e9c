#pragma once

#include <span>

#include "hook/tq_hook.h"

namespace tq::bridges {

/// One native sound interface: which of its functions are redirected, in its own folder.
struct NativeApi {
    const char* name;
    std::span<const tqhook_rebinding> rebindings;
    /// File names of images, for fnmatch(), whose own calls go to interfaces below this one and are
    /// recorded here already.
    std::span<const char* const> exempt = {};
};

// One or more for each folder beside this one.
[[nodiscard]] NativeApi alsaApi();
[[nodiscard]] NativeApi pulseApi();
[[nodiscard]] NativeApi jackApi();
[[nodiscard]] NativeApi pipeWireApi();
[[nodiscard]] NativeApi pipeWireFilterApi();
/// `isPreferred`: also where SDL plays to another interface.
[[nodiscard]] NativeApi sdlApi(bool isPreferred);

}  // namespace tq::bridges
