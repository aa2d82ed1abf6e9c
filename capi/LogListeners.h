#pragma once

#include <Foundation/NSString.h>

#include <mutex>
#include <vector>

#include "common/ForkLocks.h"
#include "tq_capture.h"

namespace tqcapi {

/// Hands the library's log lines to any number of listeners with a context of their own. It is one
/// callback of the log, registered only while there is a listener.
///
/// Locks: changes_ serialises add() and remove(); lock_ guards the list and is held while listeners
/// are called, which happens with the log's own lock held. So lock_ is never held while the log is
/// called.
class LogListeners {
  public:
    static LogListeners& shared();

    /// [host thread] `listener` must stay until it is removed.
    void add(const tq_listener& listener);
    /// [host thread] Waits for a line under way.
    void remove(const tq_listener& listener);

  private:
    static void onLog(const char* file, const char* function, NSString* tag, int level, int line,
                      NSString* message);
    void tell(const tq_log_line& line);

    std::mutex changes_;
    std::recursive_mutex lock_;
    tqcommon::ForkLock changesAtFork_{tqcommon::ForkOrder::LogListeners, changes_};
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::LogListeners, lock_};
    std::vector<const tq_listener*> listeners_;
};

}  // namespace tqcapi
