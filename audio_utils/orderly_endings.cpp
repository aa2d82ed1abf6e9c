#include "orderly_endings.h"

#include <alloca.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstddef>

#include "audio_hook_config.h"
#include "bus_handler.h"

namespace korva_audio_utils {

namespace {

// Calls come from children of vfork() too, so nothing here allocates or takes a lock.

/// While it lives, the process may become another program.
struct OtherProgram {
    AudioHookOrderlyEnding ending;
    BusErrorsAsInherited inherited;  // after it: the guard's files are not written to any more
};

template <class Function>
struct Ending;

/// The process is another program when the call succeeds and goes on when it fails.
template <class... Parameters>
struct Ending<int(Parameters...)> {
    using Pointer = int (*)(Parameters...);

    template <int kWhich>
    static inline constinit Pointer original = nullptr;

    template <int kWhich>
    static int replacement(Parameters... arguments) {
        const OtherProgram next;
        return original<kWhich>(arguments...);
    }
    template <int kWhich>
    static ReplacedCall call(const char* name) {
        return {name, reinterpret_cast<void*>(&replacement<kWhich>),
                reinterpret_cast<void**>(&original<kWhich>)};
    }
};

using ExecWithoutEnvironment = Ending<int(const char*, char* const*)>;
using ExecWithEnvironment = Ending<int(const char*, char* const*, char* const*)>;
using ExecAt = Ending<int(int, const char*, char* const*, char* const*, int)>;
using ExecOfDescriptor = Ending<int(int, char* const*, char* const*)>;

// The calls that take the new program's arguments one by one. They call the others, so what ran in
// their place before is not asked for.

/// In a struct, because a bare list changes its type when it is passed on.
struct Arguments {
    va_list list;
};

/// How many arguments there are, the null behind them included.
std::size_t CountOf(const char* first, Arguments& rest) {
    std::size_t count = 1;
    for (const char* each = first; each != nullptr; each = va_arg(rest.list, const char*)) {
        ++count;
    }
    return count;
}

/// `exec` gets the arguments as a vector; the list then stands behind their null.
template <class Exec>
int RunWithList(const char* first, Arguments& counted, Arguments& rest, const Exec& exec) {
    const OtherProgram next;
    // On the stack, as the C library does it.
    auto** const all = static_cast<char**>(alloca(CountOf(first, counted) * sizeof(char*)));
    std::size_t count = 0;
    for (const char* each = first; each != nullptr; each = va_arg(rest.list, const char*)) {
        all[count++] = const_cast<char*>(each);
    }
    all[count] = nullptr;
    return exec(all);
}

template <bool kSearches>
int ExecList(const char* file, const char* first, ...) {
    Arguments counted;
    Arguments rest;
    va_start(counted.list, first);
    va_start(rest.list, first);
    const int result = RunWithList(first, counted, rest, [file](char** all) {
        return kSearches ? execvp(file, all) : execv(file, all);
    });
    va_end(rest.list);
    va_end(counted.list);
    return result;
}

int ExecListWithEnvironment(const char* path, const char* first, ...) {
    Arguments counted;
    Arguments rest;
    va_start(counted.list, first);
    va_start(rest.list, first);
    const int result = RunWithList(first, counted, rest, [path, &rest](char** all) {
        return execve(path, all, va_arg(rest.list, char**));
    });
    va_end(rest.list);
    va_end(counted.list);
    return result;
}

}  // namespace

std::span<const ReplacedCall> orderlyEndingCalls() {
    static const std::array<ReplacedCall, 9> calls{{
        ExecWithoutEnvironment::call<0>("execv"),
        ExecWithoutEnvironment::call<1>("execvp"),
        ExecWithEnvironment::call<0>("execve"),
        ExecWithEnvironment::call<1>("execvpe"),
        ExecOfDescriptor::call<0>("fexecve"),
        ExecAt::call<0>("execveat"),
        {"execl", reinterpret_cast<void*>(&ExecList<false>), nullptr},
        {"execlp", reinterpret_cast<void*>(&ExecList<true>), nullptr},
        {"execle", reinterpret_cast<void*>(&ExecListWithEnvironment), nullptr},
    }};
    return calls;
}

}  // namespace korva_audio_utils
