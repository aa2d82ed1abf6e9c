#pragma once

#include <functional>
#include <memory>

#include <Foundation/NSObjCRuntime.h>

class TQDispatchQueue;
/// Shared ownership of a serial queue. Blocks already submitted run even when the last owner
/// lets go; letting go from inside a block of the queue is fine. In a child of a fork a queue goes
/// on with a thread of its own once something is submitted there.
using dispatch_queue_t = std::shared_ptr<TQDispatchQueue>;

/// [host thread] A queue that runs its blocks one at a time, in order, on a thread of its own that
/// bears the label (as far as the kernel keeps it). The attribute is always null: serial.
[[nodiscard]] TQ_PLATFORM_EXPORT dispatch_queue_t dispatch_queue_create(const char* label,
                                                                        std::nullptr_t attribute);
/// [host thread] Runs `block` later; returns at once. A null queue or an empty block does nothing;
/// a block that throws is dropped. In a process that can have no further thread the block runs on
/// the calling thread before this returns.
TQ_PLATFORM_EXPORT void dispatch_async(const dispatch_queue_t& queue, std::function<void()> block);
/// [host thread] Runs `block` after everything submitted before it and waits for it. From a block
/// of the same queue it runs at once instead of waiting for itself. A block that throws is dropped.
TQ_PLATFORM_EXPORT void dispatch_sync(const dispatch_queue_t& queue, std::function<void()> block);
/// [any thread] The label given at creation, empty for a null queue; valid as long as the queue.
[[nodiscard]] TQ_PLATFORM_EXPORT const char* dispatch_queue_get_label(
    const dispatch_queue_t& queue);
