#pragma once

#include <AudioToolbox/AudioToolbox.h>
#include <Foundation/NSObjCRuntime.h>

// Whether the interception of the graph functions took effect. It stands below the classes that
// ask (the mix manager) and the one that publishes it (the collect manager).

namespace TQHookSelfTest {

/// [host thread] Creates and disposes of one graph through this library's own calls; if they are
/// redirected, notifyNewAUGraph() sees that graph.
void testAUGraphHook();
/// [host thread] Told of every graph that the process creates, on the creating thread.
void notifyNewAUGraph(AUGraph graph) noexcept;
/// [any thread] Real-time safe. True once the self-test graph was seen; never false again.
[[nodiscard]] BOOL isHookSuccess() noexcept;

}  // namespace TQHookSelfTest
