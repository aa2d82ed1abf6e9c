#pragma once

namespace tqplatform {

/// [any thread] Whether the dynamic loader is held up by somebody: a constructor of a library that
/// is being loaded, which may be the caller. What another thread loads meanwhile waits for it.
/// Takes half a second where it is. Throws where there is no thread to try it.
[[nodiscard]] bool isLoaderHeld();

}  // namespace tqplatform
