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

/* Programs that include this one use the C library without asking for it. */
#include <CoreFoundation/CFByteOrder.h>
#include <MacTypes.h>
#include <assert.h>
#include <ctype.h>
#include <errno.h>
#include <float.h>
#include <inttypes.h>
#include <limits.h>
#include <math.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef long CFIndex;
typedef const void* CFTypeRef;
typedef UInt32 CFStringEncoding;

typedef const struct OpaqueCFAllocator* CFAllocatorRef;
typedef const struct OpaqueCFString* CFStringRef;
typedef const struct OpaqueCFDictionary* CFDictionaryRef;
typedef const struct OpaqueCFURL* CFURLRef;
typedef struct OpaqueCFRunLoop* CFRunLoopRef;

/** How new the platform is, to be compared with the numbers below. */
AU_EXPORT extern const double kCFCoreFoundationVersionNumber;
#define kCFCoreFoundationVersionNumber_iPhoneOS_2_0 478.23
#define kCFCoreFoundationVersionNumber_iPhoneOS_2_1 478.26
#define kCFCoreFoundationVersionNumber_iPhoneOS_2_2 478.29
#define kCFCoreFoundationVersionNumber_iPhoneOS_3_0 478.47
#define kCFCoreFoundationVersionNumber_iPhoneOS_3_1 478.52
#define kCFCoreFoundationVersionNumber_iPhoneOS_3_2 478.61
#define kCFCoreFoundationVersionNumber_iOS_4_0 550.32
#define kCFCoreFoundationVersionNumber_iOS_4_1 550.38
#define kCFCoreFoundationVersionNumber_iOS_4_2 550.52
#define kCFCoreFoundationVersionNumber_iOS_4_3 550.52
#define kCFCoreFoundationVersionNumber_iOS_5_0 675.00
#define kCFCoreFoundationVersionNumber_iOS_5_1 690.10
#define kCFCoreFoundationVersionNumber_iOS_6_0 793.00
#define kCFCoreFoundationVersionNumber_iOS_6_1 793.00
#define kCFCoreFoundationVersionNumber_iOS_7_0 847.20
#define kCFCoreFoundationVersionNumber_iOS_7_1 847.24
#define kCFCoreFoundationVersionNumber_iOS_8_0 1140.1

/** The only allocator; allocator arguments are not looked at, but for deallocators. */
AU_EXPORT extern const CFAllocatorRef kCFAllocatorDefault;
/** Says of memory that is handed over that it stays the caller's. */
AU_EXPORT extern const CFAllocatorRef kCFAllocatorNull;

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

/** [host thread] The same, and `text` may go at once: here it is copied all the same. With
 * kCFAllocatorNull as `contentsDeallocator` it stays the caller's; with any other it must come from
 * malloc() and is freed, unless the answer is null. */
AU_EXPORT CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef allocator, const char* text,
                                                      CFStringEncoding encoding,
                                                      CFAllocatorRef contentsDeallocator);

/** [any thread] [real-time safe] What the system's own strings are written in: UTF-8. */
AU_EXPORT CFStringEncoding CFStringGetSystemEncoding(void);

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
