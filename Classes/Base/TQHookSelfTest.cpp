#include "TQHookSelfTest.h"

#include <atomic>

namespace {
// Per thread: the self-test runs on one thread, and a graph that the host makes on another thread
// meanwhile must not be compared with a handle that is just being stored.
thread_local AUGraph _s_hookAUGraph = nullptr;
std::atomic<bool> _s_isHookSuccess{false};
}  // namespace

void TQHookSelfTest::testAUGraphHook() {
    NewAUGraph(&_s_hookAUGraph);
    DisposeAUGraph(_s_hookAUGraph);
}

void TQHookSelfTest::notifyNewAUGraph(AUGraph graph) noexcept {
    if (!_s_isHookSuccess.load() && graph != nullptr && graph == _s_hookAUGraph) {
        _s_isHookSuccess.store(true);
    }
}

BOOL TQHookSelfTest::isHookSuccess() noexcept {
    return _s_isHookSuccess.load();
}
