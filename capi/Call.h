#pragma once

#include <cstddef>
#include <new>

#include "tq_capture.h"

// What every call of the interface has around it.

namespace tqcapi {

/// [any thread] How many callbacks of the interface the calling thread is inside of.
[[nodiscard]] int& callbackDepth() noexcept;

/// [any thread] Stands around each callback.
class CallbackScope {
  public:
    CallbackScope() noexcept { ++callbackDepth(); }
    ~CallbackScope() { --callbackDepth(); }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;
};

/// Runs a call that may also come from inside a callback; no exception leaves it.
template <class Body>
tq_result callAnywhere(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return TQ_ERROR_NO_MEMORY;
    } catch (...) {
        return TQ_ERROR_UNKNOWN;
    }
}

/// Runs a call that must not come from inside a callback; no exception leaves it.
template <class Body>
tq_result call(Body&& body) noexcept {
    return callbackDepth() > 0 ? TQ_ERROR_INSIDE_CALLBACK : callAnywhere(body);
}

/// Whether a struct of the caller is there and long enough.
template <class Struct>
[[nodiscard]] tq_result checked(const Struct* given) noexcept {
    if (given == nullptr) {
        return TQ_ERROR_NULL;
    }
    return given->size < sizeof(Struct) ? TQ_ERROR_SIZE : TQ_OK;
}

/// Writes an answer into the caller's struct, whose own size stays.
template <class Struct>
[[nodiscard]] tq_result answer(Struct* place, Struct value) noexcept {
    const tq_result result = checked(place);
    if (result == TQ_OK) {
        value.size = place->size;
        *place = value;
    }
    return result;
}

}  // namespace tqcapi
