#pragma once

#include <pthread.h>

#include <csignal>

namespace tqcommon {

/// A thread that is made while this lives gets none of the process's signals: they are for the
/// program's own threads. Faults stay unblocked, as they strike the thread that makes them and a
/// program may want to report them. [any thread]
class SignalsBlocked {
  public:
    SignalsBlocked() noexcept {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
            sigdelset(&all, fault);
        }
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace tqcommon
