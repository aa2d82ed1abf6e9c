#pragma once

// Redirecting named functions in every loaded ELF image of the process.
//
// What flows in: records of a symbol name, a replacement and a place for the function that was
// called before. What flows out: that function, and calls of the program that reach the
// replacement. Redirected are calls through the PLT (lazily bound or not), calls and addresses
// through the GOT, constant pointers in data, images that are loaded later with dlopen() and
// pointers fetched later with dlsym(). An image that defines a redirected symbol keeps its own
// inner calls.
//
// Thread tags are those of common/Threads.h. This header is plain C.

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what libtqhook offers; everything else in it is hidden.
#define TQHOOK_EXPORT __attribute__((visibility("default")))

/// One symbol to redirect. The name is copied.
struct tqhook_rebinding {
    const char* symbol;  ///< the plain name, without a version
    void* replacement;   ///< what callers reach from now on; its image is never unloaded again
    void** saved;        ///< receives the previous function; may be null. Must stay valid for the
                         ///< life of the process when the symbol may appear later (see below)
};

/// Which images a request leaves alone, beside those that no request touches. Filled with zeros but
/// for its size, it exempts none.
struct tqhook_options {
    size_t size;                        ///< sizeof(struct tqhook_options)
    const char* const* exemptPatterns;  ///< fnmatch() patterns of file names without folders
    size_t exemptPatternCount;
    int exemptsOwnImages;  ///< not 0: the images that hold the replacements keep their calls
};

/// [host thread] Redirects `count` symbols in all loaded images and in those loaded later, in one
/// pass over the images.
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
/// `options` may be null; it is copied. An image that it exempts reaches what stands behind the
/// request's replacements: an older replacement, or the original. Later requests that name the same
/// replacement change nothing about that.
///
/// Returns 0, or -1 when a record has no symbol or no replacement (the other records are carried
/// out), when `rebindings` or the patterns are null with a count above 0 or a pattern is null
/// (nothing is redirected), when memory runs out (what was redirected up to there works), or when
/// the process has no dynamic loader to work with. Nothing is ever undone.
///
/// May be called from a library's load-time constructor. Takes the loader's lock and allocates.
/// Leaves dlerror() without a message.
TQHOOK_EXPORT int tqhook_rebind(const struct tqhook_rebinding* rebindings, size_t count,
                                const struct tqhook_options* options);

/// [host thread] Exempts images from every request, also from those already made: their calls and
/// their lookups with dlsym() stay as they are, only their loading of other images is watched.
/// `pattern` is an fnmatch() pattern of file names without folders; it is copied. The main program
/// has no such name. Slots that were changed before stay changed.
///
/// From the start "libasound_module_*" is exempt: those call sound servers on behalf of a program
/// whose own calls have been redirected already.
///
/// Returns 0, or -1 when `pattern` is null or empty or memory runs out. Takes a lock and allocates.
TQHOOK_EXPORT int tqhook_exempt_images(const char* pattern);

/// [host thread] An image that defines `symbol`, which is copied, keeps no calls for the redirected
/// symbols that it defines besides: it is one version of a library of which another is redirected,
/// and its calls are those of a program. Slots of images that were looked through before stay as
/// they are.
///
/// Returns 0, or -1 when `symbol` is null or empty or memory runs out. Takes a lock and allocates.
TQHOOK_EXPORT int tqhook_front_images(const char* symbol);

/// What has been redirected in the process so far; every count only grows.
struct tqhook_counts {
    size_t images;         ///< images looked through, each load counted once
    size_t callSlots;      ///< PLT slots that were changed
    size_t pointerSlots;   ///< GOT slots that hold a function's address
    size_t dataPointers;   ///< constant pointers in data
    size_t refusedImages;  ///< images whose memory could not be made writable: left as they were
    size_t restoredSlots;  ///< slots that lazy binding had put back and that were changed again
};

/// [host thread] Fills `counts`; null is ignored. Takes a lock.
TQHOOK_EXPORT void tqhook_report(struct tqhook_counts* counts);

#ifdef __cplusplus
}
#endif
