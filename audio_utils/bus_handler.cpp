#include "bus_handler.h"

#include <dlfcn.h>
#include <gnu/libc-version.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>

namespace korva_audio_utils {

namespace {

using Sigaction = int (*)(int, const struct sigaction*, struct sigaction*);
using Signal = void (*)(int);
using SetSignal = Signal (*)(int, Signal);
using Ignore = int (*)(int);

/// What the program wants done.
///
/// Invariant: `current` points to an action that is complete. Writers are the threads that set one,
/// each into a place of its own, then published with release order; readers are those and the
/// handler. Nobody waits, as all of them may be in a signal handler. A reader would see a mixture
/// only if `kPlaces` actions were set while it copies one.
class ProgramsAction {
  public:
    [[nodiscard]] struct sigaction get() const noexcept {
        return *current_.load(std::memory_order_acquire);
    }
    void set(const struct sigaction& action) noexcept {
        struct sigaction& place = places_[next_.fetch_add(1) % kPlaces];
        place = action;
        current_.store(&place, std::memory_order_release);
    }

  private:
    static constexpr std::size_t kPlaces = 16;

    std::array<struct sigaction, kPlaces> places_{};
    std::atomic<std::size_t> next_{1};
    std::atomic<struct sigaction*> current_{places_.data()};
};

// Constants of the program as far as the handler is concerned: no constructor runs for them.
constinit ProgramsAction programs;
constinit std::atomic<bool (*)(const siginfo_t&) noexcept> theMend{nullptr};
/// The process that has the handler. A child of vfork(), which has the same memory, sets its
/// actions itself.
constinit std::atomic<pid_t> owner{0};
constinit Sigaction originalSigaction = nullptr;

/// The C library's, also where the calls of this very library are redirected.
int setForReal(const struct sigaction* action, struct sigaction* before) noexcept {
    const Sigaction set = originalSigaction != nullptr ? originalSigaction : ::sigaction;
    return set(SIGBUS, action, before);
}

bool isFunction(const struct sigaction& action) noexcept {
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

struct sigaction defaultAction() noexcept {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    return action;
}

void passOn(int number, siginfo_t* info, void* context) {
    const struct sigaction program = programs.get();
    if (isFunction(program) && (static_cast<unsigned>(program.sa_flags) & SA_RESETHAND) != 0) {
        programs.set(defaultAction());
    }
    if ((program.sa_flags & SA_SIGINFO) != 0 && isFunction(program)) {
        program.sa_sigaction(number, info, context);
    } else if (isFunction(program)) {
        program.sa_handler(number);
    } else if (program.sa_handler == SIG_DFL || info->si_code > 0) {
        // Ends the process as it would have ended without this handler: an access fails again once
        // this returns, and a signal that was sent is sent again.
        const struct sigaction standard = defaultAction();
        setForReal(&standard, nullptr);
        if (info->si_code <= 0) {
            ::raise(SIGBUS);
        }
    }
}

void onBusError(int number, siginfo_t* info, void* context) {
    const int error = errno;
    if (!theMend.load(std::memory_order_acquire)(*info)) {
        passOn(number, info, context);
    }
    errno = error;
}

/// Whatever mask and stack the program asked for goes on being used for its own handler.
struct sigaction handlerBefore(const struct sigaction& program) noexcept {
    struct sigaction action {};
    action.sa_sigaction = onBusError;
    action.sa_mask = program.sa_mask;
    // A handler that expects the thread's own stack may need more than another one has.
    action.sa_flags = SA_SIGINFO | (isFunction(program)
                                        ? program.sa_flags & (SA_NODEFER | SA_RESTART | SA_ONSTACK)
                                        : SA_RESTART | SA_ONSTACK);
    return action;
}

/// A program may have seen the library's handler by a call that is not redirected, and sets it
/// again as the one that was there before.
bool isOurs(const struct sigaction& action) noexcept {
    return action.sa_sigaction == onBusError;
}

bool mayReplace(int number) noexcept {
    return number == SIGBUS && owner.load() == ::getpid();
}

/// What the program had before.
struct sigaction exchange(const struct sigaction& action) noexcept {
    const struct sigaction last = programs.get();
    const struct sigaction wanted = isOurs(action) ? last : action;
    const struct sigaction ours = handlerBefore(wanted);
    programs.set(wanted);
    setForReal(&ours, nullptr);
    return last;
}

int replacedSigaction(int number, const struct sigaction* action, struct sigaction* before) {
    if (!mayReplace(number)) {
        return originalSigaction(number, action, before);
    }
    const struct sigaction last = action != nullptr ? exchange(*action) : programs.get();
    if (before != nullptr) {
        *before = last;
    }
    return 0;
}

struct sigaction actionOf(Signal handler, int flags) noexcept {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    return action;
}

// The older calls, as the C library carries them out.

Signal setToStay(Signal handler) noexcept {
    struct sigaction action = actionOf(handler, SA_RESTART);
    sigaddset(&action.sa_mask, SIGBUS);
    return exchange(action).sa_handler;
}

Signal setForOnce(Signal handler) noexcept {
    constexpr auto kOnce = static_cast<int>(SA_RESETHAND | SA_NODEFER | SA_INTERRUPT);
    return exchange(actionOf(handler, kOnce)).sa_handler;
}

Signal setOrHold(Signal handler) noexcept {
    const bool holds = handler == SIG_HOLD;
    const struct sigaction last = holds ? programs.get() : exchange(actionOf(handler, 0));
    sigset_t busError;
    sigset_t before;
    sigemptyset(&busError);
    sigaddset(&busError, SIGBUS);
    pthread_sigmask(holds ? SIG_BLOCK : SIG_UNBLOCK, &busError, &before);
    return sigismember(&before, SIGBUS) == 1 ? SIG_HOLD : last.sa_handler;
}

/// Every name has an instance of its own, for what ran there before.
template <Signal (*kSet)(Signal) noexcept, int kWhich>
struct Setter {
    static inline constinit SetSignal original = nullptr;

    static Signal replacement(int number, Signal handler) {
        const bool isReplaced = handler != SIG_ERR && mayReplace(number);
        return isReplaced ? kSet(handler) : original(number, handler);
    }
    static ReplacedCall call(const char* name) {
        return {name, reinterpret_cast<void*>(&replacement), reinterpret_cast<void**>(&original)};
    }
};

constinit Ignore originalIgnore = nullptr;

int replacedIgnore(int number) {
    if (!mayReplace(number)) {
        return originalIgnore(number);
    }
    exchange(actionOf(SIG_IGN, 0));
    return 0;
}

}  // namespace

void installBusHandler(bool (*mend)(const siginfo_t& info) noexcept) noexcept {
    static const bool isInstalled = [mend] {
        struct sigaction before {};
        setForReal(nullptr, &before);
        programs.set(before);
        theMend.store(mend, std::memory_order_release);
        const struct sigaction ours = handlerBefore(before);
        owner.store(::getpid());
        return setForReal(&ours, nullptr) == 0;
    }();
    static_cast<void>(isInstalled);
}

void giveBusHandlerBack() noexcept {
    struct sigaction now {};
    setForReal(nullptr, &now);
    if (isOurs(now)) {
        const struct sigaction program = programs.get();
        owner.store(0);
        setForReal(&program, nullptr);
    }
}

void takeBusHandlerBack() noexcept {
    struct sigaction now {};
    setForReal(nullptr, &now);
    if (theMend.load() != nullptr && !isOurs(now)) {
        programs.set(now);
        const struct sigaction ours = handlerBefore(now);
        owner.store(::getpid());
        setForReal(&ours, nullptr);
    }
}

void keepBusHandlerInChild() noexcept {
    if (owner.load() != 0) {
        owner.store(::getpid());
    }
}

BusErrorsAsInherited::BusErrorsAsInherited() noexcept {
    const struct sigaction program = programs.get();
    if (program.sa_handler == SIG_IGN && setForReal(nullptr, &ours_) == 0 && isOurs(ours_)) {
        isTakenAway_ = setForReal(&program, nullptr) == 0;
    }
}

BusErrorsAsInherited::~BusErrorsAsInherited() {
    if (isTakenAway_) {
        setForReal(&ours_, nullptr);
    }
}

std::span<const ReplacedCall> busHandlerCalls() {
    static const std::array<ReplacedCall, 8> calls{
        {{"sigaction", reinterpret_cast<void*>(&replacedSigaction),
          reinterpret_cast<void**>(&originalSigaction)},
         Setter<setToStay, 0>::call("signal"),
         Setter<setToStay, 1>::call("bsd_signal"),
         Setter<setToStay, 2>::call("ssignal"),
         Setter<setForOnce, 0>::call("sysv_signal"),
         Setter<setForOnce, 1>::call("__sysv_signal"),
         Setter<setOrHold, 0>::call("sigset"),
         {"sigignore", reinterpret_cast<void*>(&replacedIgnore),
          reinterpret_cast<void**>(&originalIgnore)}}};
    return calls;
}

bool areBusHandlerCallsPlain() noexcept {
    Dl_info library{};
    if (::dladdr(reinterpret_cast<const void*>(&::gnu_get_libc_version), &library) == 0) {
        return false;
    }
    const std::span<const ReplacedCall> calls = busHandlerCalls();
    return std::all_of(calls.begin(), calls.end(), [&library](const ReplacedCall& call) {
        Dl_info found{};
        const void* const function = ::dlsym(RTLD_DEFAULT, call.name);
        return function == nullptr ||
               (::dladdr(function, &found) != 0 && found.dli_fbase == library.dli_fbase);
    });
}

}  // namespace korva_audio_utils
