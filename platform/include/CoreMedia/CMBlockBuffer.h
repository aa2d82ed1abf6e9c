#ifndef TQPLATFORM_CMBLOCKBUFFER_H
#define TQPLATFORM_CMBLOCKBUFFER_H

#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One contiguous piece of memory, reference-counted. */
typedef struct OpaqueCMBlockBuffer* CMBlockBufferRef;

AU_ENUM(OSStatus){
    kCMBlockBufferNoErr = 0,
    kCMBlockBufferStructureAllocationFailedErr = -12700,
    kCMBlockBufferBlockAllocationFailedErr = -12701,
    kCMBlockBufferBadOffsetParameterErr = -12703,
    kCMBlockBufferBadLengthParameterErr = -12704,
    kCMBlockBufferBadPointerParameterErr = -12705,
};

/** [host thread] Length in bytes; 0 when `buffer` is no live block buffer. */
AU_EXPORT size_t CMBlockBufferGetDataLength(CMBlockBufferRef buffer);

/** [host thread] Copies `dataLength` bytes from `offsetToData` on.
 * kCMBlockBufferBadPointerParameterErr for a null destination or no live buffer,
 * kCMBlockBufferBadOffsetParameterErr for an offset beyond the end,
 * kCMBlockBufferBadLengthParameterErr for more than there is; nothing is copied then. */
AU_EXPORT OSStatus CMBlockBufferCopyDataBytes(CMBlockBufferRef buffer, size_t offsetToData,
                                              size_t dataLength, void* destination);

/** [host thread] The memory itself, valid as long as the buffer: `lengthAtOffsetOut` bytes at
 *  `dataPointerOut`. Each result pointer may be null. Errors as above; an offset at the end is
 *  already beyond it. */
AU_EXPORT OSStatus CMBlockBufferGetDataPointer(CMBlockBufferRef buffer, size_t offset,
                                               size_t* lengthAtOffsetOut, size_t* totalLengthOut,
                                               char** dataPointerOut);

#ifdef __cplusplus
}
#endif

#endif
