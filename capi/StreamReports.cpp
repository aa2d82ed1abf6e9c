#include "StreamReports.h"

#include <Foundation/NSException.h>

#include "Call.h"

namespace tqcapi {

StreamReports& StreamReports::shared() {
    static auto* const instance = new StreamReports;
    return *instance;
}

void StreamReports::add(const tq_listener& listener) {
    const std::scoped_lock guard(lock_);
    listeners_.push_back(&listener);
}

void StreamReports::remove(const tq_listener& listener) noexcept {
    const std::scoped_lock guard(lock_);
    std::erase(listeners_, &listener);
}

void StreamReports::tell(const tq_stream& stream) {
    const std::scoped_lock guard(lock_);
    const CallbackScope scope;
    for (const tq_listener* const listener : listeners_) {
        // One that throws takes the report from nobody else.
        NSCallGuarded([&] { listener->on_stream(listener->context, &stream); });
    }
}

}  // namespace tqcapi
