#pragma once

#include <exception>

namespace tqplatform {

/// [any thread] What `call` gives; nothing where it throws, for there is no memory or no thread.
template <typename Call>
auto orNothing(Call call) noexcept -> decltype(call()) {
    try {
        return call();
    } catch (const std::exception&) {
        return decltype(call())();
    }
}

}  // namespace tqplatform
