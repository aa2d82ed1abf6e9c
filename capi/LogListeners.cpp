#include "LogListeners.h"

#include <Foundation/NSException.h>
#include <TQAudioRecordLog.h>

#include <algorithm>
#include <new>

#include "Call.h"

namespace tqcapi {

LogListeners& LogListeners::shared() {
    static auto* const instance = new LogListeners;
    return *instance;
}

void LogListeners::add(const tq_listener& listener) {
    const std::scoped_lock changes(changes_);
    bool isFirst = false;
    {
        const std::scoped_lock guard(lock_);
        isFirst = listeners_.empty();
        listeners_.push_back(&listener);
    }
    if (isFirst && TQAudioRecordRegisterYLogCallback(&onLog) == 0) {
        const std::scoped_lock guard(lock_);
        std::erase(listeners_, &listener);
        throw std::bad_alloc();
    }
}

void LogListeners::remove(const tq_listener& listener) {
    const std::scoped_lock changes(changes_);
    bool isLast = false;
    {
        const std::scoped_lock guard(lock_);
        std::erase(listeners_, &listener);
        isLast = listeners_.empty();
    }
    if (isLast) {
        TQAudioRecordUnregisterYLogCallback(&onLog);
    }
}

void LogListeners::onLog(const char* file, const char* function, NSString* /*tag*/, int level,
                         int line, NSString* message) {
    tq_log_line told{};
    told.size = sizeof told;
    told.level = static_cast<tq_log_level>(level);
    told.file = TQAudioRecordExtractFileName(file);
    told.function = function == nullptr ? "" : function;
    told.line = static_cast<std::uint32_t>(line);
    told.message = message == nullptr ? "" : message->UTF8String();
    shared().tell(told);
}

void LogListeners::tell(const tq_log_line& line) {
    const std::scoped_lock guard(lock_);
    const CallbackScope scope;
    // Callbacks cannot change the list.
    for (const tq_listener* const listener : listeners_) {
        // One that throws takes the line from nobody else.
        NSCallGuarded([&] { listener->on_log(listener->context, &line); });
    }
}

}  // namespace tqcapi
