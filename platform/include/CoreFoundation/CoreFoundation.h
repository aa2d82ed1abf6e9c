#ifndef TQPLATFORM_COREFOUNDATION_H
#define TQPLATFORM_COREFOUNDATION_H

/*
 * Reference-counted objects for C programs: retain and release, and immutable strings.
 *
 * An object is handed out by a function with Create or Copy in its name with one reference that
 * the caller owns. The library knows its live objects, so null, a pointer to something else and
 * an object already freed are all recognised and do no harm; only an address that a newer object
 * has taken over cannot be told apart. The look-up takes a lock.
 */

#include <CoreAudio/CoreAudioTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef long CFIndex;
typedef const void* CFTypeRef;
typedef UInt32 CFStringEncoding;

typedef const struct OpaqueCFAllocator* CFAllocatorRef;
typedef const struct OpaqueCFString* CFStringRef;
typedef const struct OpaqueCFDictionary* CFDictionaryRef;
typedef struct OpaqueCFRunLoop* CFRunLoopRef;

/** The only allocator; allocator arguments are not looked at. */
AU_EXPORT extern const CFAllocatorRef kCFAllocatorDefault;

AU_ENUM(CFStringEncoding){
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingUTF8 = 0x08000100,
};

/** [host thread] Adds a reference and returns `object`; null when it is no live object. */
AU_EXPORT CFTypeRef CFRetain(CFTypeRef object);

/** [host thread] Drops a reference; the last one frees the object. Anything but a live object is
 * ignored. */
AU_EXPORT void CFRelease(CFTypeRef object);

/** [host thread] The number of references, 0 when `object` is no live object. */
AU_EXPORT CFIndex CFGetRetainCount(CFTypeRef object);

/** [host thread] A copy of terminated text. Null for null text, an encoding not listed above, text
 * that is not well-formed in its encoding, or no memory. */
AU_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                                CFStringEncoding encoding);

/** [host thread] Length in UTF-16 units; 0 when `string` is no live string. */
AU_EXPORT CFIndex CFStringGetLength(CFStringRef string);

/** [any thread] The most bytes that `length` UTF-16 units take in `encoding`, without the
 * terminator; -1 for another encoding or a length that is negative or too large. */
AU_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

/** [host thread] Copies the text and a terminator into `buffer` of `bufferSize` bytes. False, with
 * the buffer untouched, when it does not fit, cannot be said in `encoding`, or an argument is bad.
 */
AU_EXPORT Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);

/** [host thread] The terminated text itself, valid as long as the string; null when it cannot be
 * said in `encoding` or `string` is no live string. */
AU_EXPORT const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding);

#ifdef __cplusplus
}
#endif

#endif
