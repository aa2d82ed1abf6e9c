#ifndef TQPLATFORM_CFBYTEORDER_H
#define TQPLATFORM_CFBYTEORDER_H

/* The bytes of numbers in files and on wires: swapped, or left alone when they are the machine's
 * own order. [any thread] [real-time safe] */

#include <MacTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef long CFByteOrder;

enum {
    CFByteOrderUnknown = 0,
    CFByteOrderLittleEndian = 1,
    CFByteOrderBigEndian = 2,
};

static inline CFByteOrder CFByteOrderGetCurrent(void) {
    return CFByteOrderLittleEndian;
}

static inline UInt16 CFSwapInt16(UInt16 arg) {
    return __builtin_bswap16(arg);
}
static inline UInt32 CFSwapInt32(UInt32 arg) {
    return __builtin_bswap32(arg);
}
static inline UInt64 CFSwapInt64(UInt64 arg) {
    return __builtin_bswap64(arg);
}

static inline UInt16 CFSwapInt16BigToHost(UInt16 arg) {
    return CFSwapInt16(arg);
}
static inline UInt32 CFSwapInt32BigToHost(UInt32 arg) {
    return CFSwapInt32(arg);
}
static inline UInt64 CFSwapInt64BigToHost(UInt64 arg) {
    return CFSwapInt64(arg);
}
static inline UInt16 CFSwapInt16HostToBig(UInt16 arg) {
    return CFSwapInt16(arg);
}
static inline UInt32 CFSwapInt32HostToBig(UInt32 arg) {
    return CFSwapInt32(arg);
}
static inline UInt64 CFSwapInt64HostToBig(UInt64 arg) {
    return CFSwapInt64(arg);
}

static inline UInt16 CFSwapInt16LittleToHost(UInt16 arg) {
    return arg;
}
static inline UInt32 CFSwapInt32LittleToHost(UInt32 arg) {
    return arg;
}
static inline UInt64 CFSwapInt64LittleToHost(UInt64 arg) {
    return arg;
}
static inline UInt16 CFSwapInt16HostToLittle(UInt16 arg) {
    return arg;
}
static inline UInt32 CFSwapInt32HostToLittle(UInt32 arg) {
    return arg;
}
static inline UInt64 CFSwapInt64HostToLittle(UInt64 arg) {
    return arg;
}

#ifdef __cplusplus
}
#endif

#endif
