#pragma once

#include <cxxabi.h>

#include "NSObjCRuntime.h"

/// Calls code whose exceptions must not travel on: NO when it threw. A thread that is being
/// cancelled unwinds through a pseudo-exception that the C library insists on getting back; there
/// is no object behind its reference, which the sanitizers need not hear of. [any thread]
/// Real-time safe as far as `function` is.
template <class Function, class... Arguments>
__attribute__((no_sanitize("undefined"))) BOOL NSCallGuarded(const Function& function,
                                                             const Arguments&... arguments) {
    try {
        function(arguments...);
        return YES;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return NO;
    }
}
