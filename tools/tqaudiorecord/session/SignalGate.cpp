#include "session/SignalGate.h"

#include <pthread.h>
#include <sys/signalfd.h>

namespace tqrecorder {

bool SignalGate::open() {
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&wanted, number);
        }
    }
    pthread_sigmask(SIG_BLOCK, &wanted, &before_);
    descriptor_ = tqcommon::Descriptor(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_) {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    return static_cast<bool>(descriptor_);
}

void SignalGate::close() {
    if (descriptor_) {
        // Signals that are still pending asked for the end, which has come: they are taken away so
        // that they do not end this process when they are unblocked.
        while (next()) {
        }
        descriptor_.reset();
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
}

std::optional<SignalGate::Signal> SignalGate::next() const {
    signalfd_siginfo info{};
    if (!descriptor_ ||
        read(descriptor_.get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) {
        return std::nullopt;
    }
    return Signal{static_cast<int>(info.ssi_signo), info.ssi_code == SI_KERNEL};
}

}  // namespace tqrecorder
