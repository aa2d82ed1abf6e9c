#pragma once

#include <cassert>

// Which threads may call a function. Public doc comments use these three tags and no other words.
//
//   [host thread]    A thread that may wait, allocate and take locks: the program's own, a dispatch
//                    queue's, the recorder's. Never one that is inside a render.
//   [render thread]  The thread that is rendering a block: the device's, or the program's own while
//                    it pulls a unit. One at a time for each object unless said otherwise. Code
//                    that runs here is real-time safe unless its comment names what it waits for.
//   [any thread]     Both, at the same time as any other call unless said otherwise.
//
// "[one host thread at a time]" and "[any thread, one at a time]" narrow a tag: the caller excludes
// other calls.
//
// RenderThreadScope stands where a library's code is entered by a render; behind it, in builds
// without NDEBUG, assertHostThread() and assertRenderThread() hold functions to their tag.

namespace tqcommon {

namespace detail {
/// How many renders the calling thread is inside of, as this library sees it.
inline int& renderDepth() noexcept {
    // In the library itself, so that the first use on a thread allocates nothing.
    [[gnu::tls_model("initial-exec")]] static thread_local int depth = 0;
    return depth;
}
}  // namespace detail

/// [render thread] The calling thread renders for as long as this lives. Nests.
class RenderThreadScope {
  public:
    RenderThreadScope() noexcept { ++detail::renderDepth(); }
    ~RenderThreadScope() { --detail::renderDepth(); }
    RenderThreadScope(const RenderThreadScope&) = delete;
    RenderThreadScope& operator=(const RenderThreadScope&) = delete;
};

/// [any thread] Whether the calling thread is inside a render that this library knows of.
[[nodiscard]] inline bool isRenderThread() noexcept {
    return detail::renderDepth() > 0;
}

inline void assertHostThread() noexcept {
    assert(!isRenderThread());
}

inline void assertRenderThread() noexcept {
    assert(isRenderThread());
}

}  // namespace tqcommon
