#pragma once

#include <pthread.h>

#include <csignal>
#include <ctime>

namespace tqcommon {

/// While it lives, a limit of file sizes is an error of this thread's calls, not a signal that ends
/// the host. [any thread]
class FileSizeSignalHeld {
  public:
    FileSizeSignalHeld() noexcept {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~FileSizeSignalHeld() {
        if (sigismember(&before_, SIGXFSZ) == 0) {
            constexpr timespec kNow{0, 0};
            sigtimedwait(&signal_, nullptr, &kNow);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    FileSizeSignalHeld(const FileSizeSignalHeld&) = delete;
    FileSizeSignalHeld& operator=(const FileSizeSignalHeld&) = delete;

  private:
    sigset_t signal_{};
    sigset_t before_{};
};

}  // namespace tqcommon
