#pragma once

#include <cxxabi.h>

namespace tqplatform {

/// Calls foreign code whose exceptions concern nobody here. A thread that is being cancelled
/// unwinds through a pseudo-exception that the C library insists on getting back; there is no
/// object behind its reference, which the sanitizers need not hear of.
template <class Function, class... Arguments>
__attribute__((no_sanitize("undefined"))) void runGuarded(const Function& function,
                                                          const Arguments&... arguments) {
    try {
        function(arguments...);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return;
    }
}

}  // namespace tqplatform
