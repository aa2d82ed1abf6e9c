#include "TQAudioRecordLog.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "TQAudioRecordLock.h"
#include "TQAudioRecordLogList.h"
#include "common/ForkLocks.h"

namespace {

/// Everything that the one lock guards. Made on first use and never destroyed, because records
/// come from static initialisers and from threads that outlive main().
struct Sink {
    std::shared_ptr<NSRecursiveLock> lock = std::make_shared<NSRecursiveLock>();
    int dispatches = 0;
    /// Nodes removed while a dispatch may stand on them; freed when the last dispatch ends.
    std::vector<ylog_entity*> retired;
    tqcommon::ForkLock atFork{tqcommon::ForkOrder::Log, *lock};
};

Sink& sink() {
    static Sink* const instance = new Sink;
    return *instance;
}

/// Makes the lock before any other code of the library runs.
[[maybe_unused]] const Sink& earlySink = sink();

ylog_entity* _callback_head = nullptr;
std::atomic<int> registrations{0};

/// Frees what was removed during a dispatch once the outermost one is over.
class DispatchScope {
  public:
    DispatchScope() { ++sink().dispatches; }
    ~DispatchScope() {
        if (--sink().dispatches == 0) {
            for (ylog_entity* node : sink().retired) {
                std::free(node);
            }
            sink().retired.clear();
        }
    }
    DispatchScope(const DispatchScope&) = delete;
    DispatchScope& operator=(const DispatchScope&) = delete;
};

}  // namespace

int prepend_ylog_callback(ylog_entity** head, TQAudioRecordLogCallback callback) {
    const TQAudioRecordLock guard(sink().lock);
    auto* const node = static_cast<ylog_entity*>(std::malloc(sizeof(ylog_entity)));
    if (node == nullptr) {
        return 0;
    }
    *node = {callback, *head};
    *head = node;
    return 1;
}

int delete_ylog_callback(ylog_entity** head, TQAudioRecordLogCallback callback) {
    const TQAudioRecordLock guard(sink().lock);
    for (ylog_entity** link = head; *link != nullptr; link = &(*link)->next) {
        ylog_entity* const node = *link;
        if (node->callback != callback) {
            continue;
        }
        *link = node->next;
        if (sink().dispatches > 0) {
            // A dispatch under way may stand on this node: it still follows `next`, but calls
            // nothing.
            node->callback = nullptr;
            sink().retired.push_back(node);
        } else {
            std::free(node);
        }
        return 1;
    }
    return 0;
}

bool isTQAudioRecordLogObserved() noexcept {
    return registrations.load(std::memory_order_relaxed) > 0;
}

void TQAudioRecordLog(const char* file, const char* function, NSString* tag, int level, int line,
                      NSString* message) {
    const NSRef<NSString> heldTag(tag);
    const NSRef<NSString> heldMessage(message);
    const TQAudioRecordLock guard(sink().lock);
    const DispatchScope scope;
    for (const ylog_entity* node = _callback_head; node != nullptr; node = node->next) {
        if (node->callback != nullptr) {
            // A host's callback that throws must not unwind through an audio thread.
            NSCallGuarded(node->callback, file, function, tag, level, line, message);
        }
    }
}

int TQAudioRecordRegisterYLogCallback(TQAudioRecordLogCallback callback) {
    if (callback == nullptr) {
        return 0;
    }
    const int added = prepend_ylog_callback(&_callback_head, callback);
    registrations.fetch_add(added, std::memory_order_relaxed);
    return added;
}

int TQAudioRecordUnregisterYLogCallback(TQAudioRecordLogCallback callback) {
    if (callback == nullptr) {
        return 0;
    }
    const int removed = delete_ylog_callback(&_callback_head, callback);
    registrations.fetch_sub(removed, std::memory_order_relaxed);
    return removed;
}

const char* TQAudioRecordExtractFileName(const char* path) {
    if (path == nullptr) {
        return "";
    }
    const char* separator = std::strrchr(path, '\\');
    if (separator == nullptr) {
        separator = std::strrchr(path, '/');
    }
    if (separator == nullptr || separator[1] == '\0') {
        return path;
    }
    return separator + 1;
}
