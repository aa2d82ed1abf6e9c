#pragma once

#include <csignal>
#include <span>

#include "replaced_call.h"

namespace korva_audio_utils {

/// [any thread] Installs the library's handler of SIGBUS, once. `mend` says whether it has repaired
/// what the access failed on, which is then repeated; it runs in the handler. What it has not goes
/// on to whoever had the signal before, with the same result as without this handler.
void installBusHandler(bool (*mend)(const siginfo_t& info) noexcept) noexcept;

/// [any thread] The signal is its former owner's again, until the handler is taken back; nothing
/// where somebody has taken it past the handler. Not two of these at a time.
void giveBusHandlerBack() noexcept;
void takeBusHandlerBack() noexcept;

/// Only in the child of a fork, which has the handler as well.
void keepBusHandlerInChild() noexcept;

/// [any thread] While it lives, a signal that the program ignores is ignored without the library's
/// handler, as another program inherits what is ignored and no handlers. Real-time safe; also for
/// children of vfork().
class BusErrorsAsInherited {
  public:
    BusErrorsAsInherited() noexcept;
    ~BusErrorsAsInherited();
    BusErrorsAsInherited(const BusErrorsAsInherited&) = delete;
    BusErrorsAsInherited& operator=(const BusErrorsAsInherited&) = delete;

  private:
    struct sigaction ours_ {};
    bool isTakenAway_ = false;
};

/// [any thread] The calls by which a program takes SIGBUS, as crash reporters do. With the
/// replacements in their place what it sets stands behind the library's handler, and what it asks
/// for is its own. The replacements may be called in signal handlers and by children of vfork().
std::span<const ReplacedCall> busHandlerCalls();
/// [host thread] Whether the C library defines them for this program. Where another image does, as
/// a sanitizer in the program's own file, that image would keep all of its calls, those of sound
/// as well.
[[nodiscard]] bool areBusHandlerCallsPlain() noexcept;

}  // namespace korva_audio_utils
