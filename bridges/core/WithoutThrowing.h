#pragma once

#include <exception>

namespace tq::bridges {

/// [host thread] What a replaced function does beside the call itself. It throws only without
/// memory: then the stream plays unrecorded, and the answer is an empty one.
template <class Action>
auto withoutThrowing(Action action) noexcept -> decltype(action()) {
    try {
        return action();
    } catch (const std::exception&) {
        return decltype(action())();
    }
}

}  // namespace tq::bridges
