#pragma once

#include <mutex>
#include <vector>

#include "common/ForkLocks.h"
#include "tq_capture.h"

namespace tqcapi {

/// Hands what bridges say of their streams to every listener that wants it. The lock guards the
/// list and is held while listeners are called.
class StreamReports {
  public:
    /// Made on first use, never destroyed.
    static StreamReports& shared();

    /// [host thread] `listener` must stay until it is removed.
    void add(const tq_listener& listener);
    /// [host thread] Waits for a report under way.
    void remove(const tq_listener& listener) noexcept;
    /// [any thread] Not real-time safe.
    void tell(const tq_stream& stream);

  private:
    std::recursive_mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::StreamReports, lock_};
    std::vector<const tq_listener*> listeners_;
};

}  // namespace tqcapi
