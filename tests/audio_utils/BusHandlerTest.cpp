#include "bus_handler.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "CutPage.h"
#include "bus_guard.h"
#include "orderly_endings.h"

// A program that takes the signal for itself, by calls that are redirected.

namespace korva_audio_utils {
namespace {

using Signal = void (*)(int);
using SetSignal = Signal (*)(int, Signal);
using Ignore = int (*)(int);
using Sigaction = int (*)(int, const struct sigaction*, struct sigaction*);

/// A process with the library's handler, in which nobody had the signal before.
struct Host {
    Host() {
        std::signal(SIGBUS, SIG_DFL);  // a sanitizer's report would end the child with a code
        guard = BusGuard(Address(guarded), kPage);
        for (const ReplacedCall& call : busHandlerCalls()) {
            *call.saved = ::dlsym(RTLD_DEFAULT, call.name);
        }
    }
    template <class Function>
    static Function call(std::string_view name) {
        for (const ReplacedCall& each : busHandlerCalls()) {
            if (each.name == name) {
                return reinterpret_cast<Function>(each.replacement);
            }
        }
        std::_Exit(100);
    }
    static void set(const struct sigaction& action) {
        call<Sigaction>("sigaction")(SIGBUS, &action, nullptr);
    }
    static Signal handler() {
        struct sigaction found {};
        call<Sigaction>("sigaction")(SIGBUS, nullptr, &found);
        return found.sa_handler;
    }

    volatile char* const guarded = CutPage();
    volatile char* const other = CutPage();
    BusGuard guard;
};

void endWith43(int /*number*/) {
    std::_Exit(43);
}

TEST(BusHandlerDeathTest, EveryCallOfTheCLibraryThatSetsAHandlerSetsItBehindTheLibrarys) {
    for (const char* const name :
         {"signal", "bsd_signal", "ssignal", "sysv_signal", "__sysv_signal", "sigset"}) {
        const auto child = [name] {
            const Host host;
            const auto set = Host::call<SetSignal>(name);
            if (set(SIGBUS, endWith43) != SIG_DFL || set(SIGBUS, endWith43) != endWith43 ||
                Host::handler() != endWith43) {
                std::_Exit(1);
            }
            host.guarded[0] = 1;
            host.other[0] = 1;
        };
        EXPECT_EXIT(child(), testing::ExitedWithCode(43), "") << name;
    }
}

TEST(BusHandlerDeathTest, AnIgnoredSignalDoesNothingWhenItIsSentAndKillsWhenAnAccessFails) {
    const auto child = [] {
        const Host host;
        Host::call<Ignore>("sigignore")(SIGBUS);
        std::raise(SIGBUS);
        if (Host::handler() != SIG_IGN) {
            std::_Exit(1);
        }
        host.guarded[0] = 1;
        host.other[0] = 1;
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGBUS), "");
}

TEST(BusHandlerDeathTest, WhatIsIgnoredTheProgramThatItBecomesIgnoresAsWell) {
    const auto child = [] {
        const Host host;
        Host::call<Ignore>("sigignore")(SIGBUS);
        using Exec = int (*)(const char*, char* const*);
        Exec exec = nullptr;
        for (const ReplacedCall& call : orderlyEndingCalls()) {
            if (std::string_view(call.name) == "execv") {
                *call.saved = ::dlsym(RTLD_DEFAULT, call.name);
                exec = reinterpret_cast<Exec>(call.replacement);
            }
        }
        std::array<char*, 1> none{};
        exec("/nowhere", none.data());
        host.guarded[0] = 1;
        const std::array<std::string, 3> words{"sh", "-c", "kill -BUS $$; exit 49"};
        std::array<char*, 4> arguments{};
        for (std::size_t i = 0; i < words.size(); ++i) {
            arguments[i] = const_cast<char*>(words[i].c_str());
        }
        exec("/bin/sh", arguments.data());
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(49), "");
}

TEST(BusHandlerDeathTest, ASignalThatIsHeldIsSaidToBe) {
    const auto child = [] {
        const Host host;
        const auto set = Host::call<SetSignal>("sigset");
        const bool isGood = set(SIGBUS, SIG_HOLD) == SIG_DFL && set(SIGBUS, SIG_HOLD) == SIG_HOLD &&
                            set(SIGBUS, endWith43) == SIG_HOLD &&
                            set(SIGBUS, endWith43) == endWith43;
        std::_Exit(isGood ? 44 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(44), "");
}

TEST(BusHandlerDeathTest, TheLibrarysOwnHandlerThatIsSetAgainChangesNothing) {
    const auto child = [] {
        const Host host;
        struct sigaction seen {};
        ::sigaction(SIGBUS, nullptr, &seen);
        Host::call<SetSignal>("signal")(SIGBUS, seen.sa_handler);
        Host::set(seen);
        if (Host::handler() != SIG_DFL) {
            std::_Exit(1);
        }
        host.guarded[0] = 1;
        host.other[0] = 1;
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGBUS), "");
}

TEST(BusHandlerDeathTest, AHandlerRunsOnTheAlternateStackOnlyWhereItAskedForIt) {
    static std::array<char, 64 * 1024> alternate;
    const auto child = [](int flags) {
        const Host host;
        stack_t stack{};
        stack.ss_sp = alternate.data();
        stack.ss_size = alternate.size();
        ::sigaltstack(&stack, nullptr);
        struct sigaction action {};
        action.sa_flags = flags;
        action.sa_handler = [](int) {
            const auto* const frame = static_cast<const char*>(__builtin_frame_address(0));
            const bool isThere = frame >= alternate.data() && frame < &alternate.back();
            std::_Exit(isThere ? 46 : 45);
        };
        Host::set(action);
        host.guarded[0] = 1;
        host.other[0] = 1;
    };
    EXPECT_EXIT(child(0), testing::ExitedWithCode(45), "");
    EXPECT_EXIT(child(SA_ONSTACK), testing::ExitedWithCode(46), "");
}

TEST(BusHandlerDeathTest, AHandlerForOnceIsCalledOnce) {
    const auto child = [] {
        const Host host;
        struct sigaction action {};
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        action.sa_handler = [](int) {
            if (Host::handler() != SIG_DFL) {
                std::_Exit(1);
            }
        };
        Host::set(action);
        host.other[0] = 1;  // comes back from the handler, fails again
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGBUS), "");
}

TEST(BusHandlerDeathTest, WhatAHandlerWantsBlockedIsBlockedWhileItRuns) {
    const auto child = [] {
        const Host host;
        struct sigaction action {};
        sigaddset(&action.sa_mask, SIGUSR1);
        action.sa_handler = [](int) {
            sigset_t mask;
            pthread_sigmask(SIG_SETMASK, nullptr, &mask);
            std::_Exit(sigismember(&mask, SIGUSR1) == 1 && sigismember(&mask, SIGBUS) == 1 ? 47
                                                                                           : 1);
        };
        Host::set(action);
        host.other[0] = 1;
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(47), "");
}

TEST(BusHandlerDeathTest, AChildThatKeepsTheHandlerKeepsItWhenItSetsItsOwn) {
    const auto child = [] {
        const Host host;
        const pid_t forked = ::fork();
        if (forked == 0) {
            keepBusHandlerInChild();
            Host::call<SetSignal>("signal")(SIGBUS, endWith43);
            host.guarded[0] = 1;
            std::_Exit(48);
        }
        int status = 0;
        ::waitpid(forked, &status, 0);
        std::_Exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(48), "");
}

}  // namespace
}  // namespace korva_audio_utils
