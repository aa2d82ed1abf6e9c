#ifndef TQPLATFORM_MACTYPES_H
#define TQPLATFORM_MACTYPES_H

/* The scalars that all of the platform's C headers are written in, and what their calls answer. */

#include <TargetConditionals.h>
#include <stddef.h>
#include <stdint.h>

/** Marks the C functions that libtqplatform offers to programs. */
#ifndef AU_EXPORT
#define AU_EXPORT __attribute__((visibility("default")))
#endif

/** Begins a list of constants that have a fixed type in C++ and are plain integers in C. */
#ifndef AU_ENUM
#if defined(__cplusplus) && __cplusplus >= 201103L
#define AU_ENUM(type) enum : type
#else
#define AU_ENUM(type) enum
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef UInt8 Byte;
typedef SInt32 OSStatus;
/** What calls answered before OSStatus; the numbers of both agree. */
typedef SInt16 OSErr;
/** Four characters, the first one in the most significant byte. */
typedef UInt32 OSType;
typedef UInt32 FourCharCode;
/** 16 bits before the point and 16 behind it. */
typedef SInt32 Fixed;
typedef UInt16 UniChar;
typedef unsigned long ByteCount;
typedef unsigned long ItemCount;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef nil
#define nil NULL
#endif

AU_ENUM(OSStatus){
    noErr = 0,
};

#ifdef __cplusplus
}
#endif

#endif
