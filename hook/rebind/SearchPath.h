#pragma once

#include <functional>

#include "hook/rebind/LoaderCalls.h"

namespace tqhook {

// The loader searches with the paths and the scope of the image that calls it, which it knows by
// the return address. A call that goes through us comes from the wrong image; these functions do
// what the loader would have done for `caller`, an address in the image that really calls.

/// Whether openFor() can stand in for the loader: false for callers in another namespace and for
/// names with tokens that only the loader can replace.
[[nodiscard]] bool canLoadFor(const char* name, const void* caller);

/// dlopen() on behalf of `caller`. On failure the message for dlerror() is the loader's own.
[[nodiscard]] void* openFor(const LoaderCalls& calls, const char* name, int flags,
                            const void* caller);

/// A lookup on behalf of `caller`: with RTLD_DEFAULT in the program's global scope and then in
/// the caller's own, with other handles as they are.
[[nodiscard]] void* lookUpFor(const LoaderCalls& calls, void* handle, const void* caller,
                              const std::function<void*(void* scope)>& ask);

}  // namespace tqhook
