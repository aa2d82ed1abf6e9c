#pragma once

// Memory that runs out at a chosen allocation. Programs that link tq_test_failing_allocations get
// operators new and delete that count on each thread for itself and spoil what is freed.

namespace tqtest {

/// Allocations of this thread that still succeed; below zero all do.
extern thread_local int allocationsLeft;
/// Whether one has failed since this was set to false.
extern thread_local bool hasAllocationFailed;

}  // namespace tqtest
