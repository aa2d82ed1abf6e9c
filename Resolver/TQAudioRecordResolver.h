#pragma once

// Redirecting named functions in every loaded ELF image of the process.
//
// What flows in: records of a symbol name, a replacement and a place for the function that was
// called before. What flows out: that function, and calls of the host that reach the replacement.
// Redirected are calls through the PLT (lazily bound or not), calls and addresses through the GOT,
// constant pointers in data, images that are loaded later with dlopen() and pointers fetched later
// with dlsym(). The image that defines a symbol keeps its own inner calls.
//
// This header is plain C.

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what libTQAudioRecordResolver offers; everything else in it is hidden.
#define TQ_RESOLVER_EXPORT __attribute__((visibility("default")))

/// One symbol to redirect. The name is copied.
struct TQRebinding {
    const char* symbol;  ///< the plain name, without a version
    void* replacement;   ///< what callers reach from now on; its image is never unloaded again
    void** saved;        ///< receives the previous function; may be null. Must stay valid for the
                         ///< life of the process when the symbol may appear later (see below)
};
#ifndef __cplusplus
typedef struct TQRebinding TQRebinding;
#endif

/// [host thread] Redirects `count` symbols in all loaded images and in those loaded later.
///
/// The newest replacement of a symbol runs first and its saved function is the replacement before
/// it; the oldest one's is the original definition, never a PLT entry. A saved slot is written
/// before any caller can reach its replacement. Naming a replacement again that the symbol already
/// has changes no order and answers the same saved function as the first time.
///
/// A symbol that no loaded image defines is no error: its saved slot is set to null and nothing
/// calls the replacement. When an image that defines it is loaded later, the saved slot is
/// filled and the redirection done then.
///
/// Returns 0, or -1 when a record has no symbol or no replacement (the other records are carried
/// out), when `rebindings` is null with a count above 0, or when the process has no dynamic
/// loader to work with. Nothing is ever undone.
///
/// May be called from a library's load-time constructor. Takes the loader's lock and allocates.
/// Leaves dlerror() without a message.
TQ_RESOLVER_EXPORT int tqreplay_rebind_symbols(struct TQRebinding* rebindings, size_t count);

/// What has been redirected in the process so far; every count only grows.
struct TQRebindReport {
    size_t images;         ///< images looked through, each load counted once
    size_t callSlots;      ///< PLT slots that were changed
    size_t pointerSlots;   ///< GOT slots that hold a function's address
    size_t dataPointers;   ///< constant pointers in data
    size_t refusedImages;  ///< images whose memory could not be made writable: left as they were
    size_t restoredSlots;  ///< slots that lazy binding had put back and that were changed again
};
#ifndef __cplusplus
typedef struct TQRebindReport TQRebindReport;
#endif

/// [host thread] Fills `report`; null is ignored. Takes a lock.
TQ_RESOLVER_EXPORT void tqreplay_rebind_report(struct TQRebindReport* report);

#ifdef __cplusplus
}
#endif
