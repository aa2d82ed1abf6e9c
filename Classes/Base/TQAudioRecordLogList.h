#pragma once

#include "TQAudioRecordLog.h"

/// One registered callback. Nodes come from malloc and go with free.
struct ylog_entity {
    TQAudioRecordLogCallback callback;
    ylog_entity* next;
};

/// [any thread] Takes the log's lock. 1 when the callback now stands at the head, 0 when no memory
/// is left.
int prepend_ylog_callback(ylog_entity** head, TQAudioRecordLogCallback callback);
/// [any thread] Takes the log's lock. 1 when the first node with that callback was removed, 0 when
/// there is none.
int delete_ylog_callback(ylog_entity** head, TQAudioRecordLogCallback callback);

/// [any thread] Real-time safe. False when nobody would see a record, so that callers need not
/// format one.
bool isTQAudioRecordLogObserved() noexcept;
