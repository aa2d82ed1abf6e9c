#pragma once

#include <Foundation/NSString.h>

#include "TQAudioRecordExport.h"

/// [any thread] Receives every log record of the library. Runs on the logging thread, render
/// threads included, one call at a time and often with locks of the library held; it may log,
/// register and unregister, but must call nothing else of the library, of units or of graphs. The
/// texts and strings are valid during the call. `level` is 1 debug, 2 info, 3 warning, 4 error.
using TQAudioRecordLogCallback = void (*)(const char* file, const char* function, NSString* tag,
                                          int level, int line, NSString* message);

extern "C" {

/// [any thread] Hands one record to every registered callback, newest registration first; without
/// any, nothing happens. Holds the log's lock meanwhile.
TQ_RECORD_EXPORT void TQAudioRecordLog(const char* file, const char* function, NSString* tag,
                                       int level, int line, NSString* message);

/// [host thread] Adds a callback in front of the others; the same one may be added again and is
/// then called once per registration. 1 on success, 0 for null or when no memory is left. Waits for
/// a dispatch under way on another thread.
TQ_RECORD_EXPORT int TQAudioRecordRegisterYLogCallback(TQAudioRecordLogCallback callback);

/// [host thread] Takes the newest registration of that callback back. 1 when there was one, else 0.
TQ_RECORD_EXPORT int TQAudioRecordUnregisterYLogCallback(TQAudioRecordLogCallback callback);

/// [any thread] Real-time safe. The part of `path` behind its last backslash or, only if there is
/// none, its last slash; the whole path when nothing follows the separator or there is none; "" for
/// null. Points into `path`.
TQ_RECORD_EXPORT const char* TQAudioRecordExtractFileName(const char* path);
}
