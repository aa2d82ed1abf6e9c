#ifndef TQPLATFORM_CMFORMATDESCRIPTION_H
#define TQPLATFORM_CMFORMATDESCRIPTION_H

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct OpaqueCMFormatDescription* CMFormatDescriptionRef;
typedef CMFormatDescriptionRef CMAudioFormatDescriptionRef;
typedef FourCharCode CMMediaType;

AU_ENUM(CMMediaType){
    kCMMediaType_Audio = 0x736F756E, /* soun */
};

AU_ENUM(OSStatus){
    kCMFormatDescriptionError_InvalidParameter = -12710,
    kCMFormatDescriptionError_AllocationFailed = -12711,
};

/** [host thread] A description holding copies of all that it is given; `layout` and `cookie` may be
 * null with size 0. `extensions` is not looked at. kCMFormatDescriptionError_InvalidParameter for a
 * null description or result pointer, a size without its pointer or the reverse, or a layout
 * shorter than it says; kCMFormatDescriptionError_AllocationFailed. The result is null on any
 * error. */
AU_EXPORT OSStatus CMAudioFormatDescriptionCreate(
    CFAllocatorRef allocator, const AudioStreamBasicDescription* asbd, size_t layoutSize,
    const AudioChannelLayout* layout, size_t magicCookieSize, const void* magicCookie,
    CFDictionaryRef extensions, CMAudioFormatDescriptionRef* formatDescriptionOut);

/** [host thread] kCMMediaType_Audio; 0 when `desc` is no live description. */
AU_EXPORT CMMediaType CMFormatDescriptionGetMediaType(CMFormatDescriptionRef desc);

/** [host thread] The stream description, valid as long as `desc`; null when `desc` is no live
 * description. */
AU_EXPORT const AudioStreamBasicDescription* CMAudioFormatDescriptionGetStreamBasicDescription(
    CMAudioFormatDescriptionRef desc);

/** [host thread] The channel layout and its size, null and 0 without one; `sizeOut` may be null.
 * Valid as long as `desc`. */
AU_EXPORT const AudioChannelLayout* CMAudioFormatDescriptionGetChannelLayout(
    CMAudioFormatDescriptionRef desc, size_t* sizeOut);

/** [host thread] The magic cookie, likewise. */
AU_EXPORT const void* CMAudioFormatDescriptionGetMagicCookie(CMAudioFormatDescriptionRef desc,
                                                             size_t* sizeOut);

#ifdef __cplusplus
}
#endif

#endif
