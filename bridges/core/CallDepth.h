#pragma once

namespace tq::bridges {

/// Calls of the program into native sound interfaces that the thread is inside of. A native library
/// that plays through another one calls functions that are redirected too: only the outermost call
/// is the program's.
class CallDepth {
  public:
    CallDepth() noexcept { ++depth(); }
    ~CallDepth() { --depth(); }
    CallDepth(const CallDepth&) = delete;
    CallDepth& operator=(const CallDepth&) = delete;

    /// [any thread] [real-time safe] This call is the program's own.
    [[nodiscard]] bool isOutermost() const noexcept { return depth() == 1; }

  private:
    static int& depth() noexcept {
        // In the library itself, so that the first use on a thread allocates nothing.
        [[gnu::tls_model("initial-exec")]] static thread_local int depth = 0;
        return depth;
    }
};

}  // namespace tq::bridges
