#pragma once

#include <cxxabi.h>

namespace tqplatform {

/// Calls foreign code whose exceptions concern nobody here. A thread that is being cancelled
/// unwinds through a pseudo-exception that the C library insists on getting back.
template <class Function, class... Arguments>
void runGuarded(const Function& function, const Arguments&... arguments) {
    try {
        function(arguments...);
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return;
    }
}

}  // namespace tqplatform
