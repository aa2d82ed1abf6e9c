#ifndef TQPLATFORM_CMSAMPLEBUFFER_H
#define TQPLATFORM_CMSAMPLEBUFFER_H

#include <CoreMedia/CMBlockBuffer.h>
#include <CoreMedia/CMFormatDescription.h>
#include <CoreMedia/CMTime.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Samples of one format with their times and, once attached, their data. Different buffers may
 *  be used on different threads; of one buffer, only reading is shared safely. */
typedef struct OpaqueCMSampleBuffer* CMSampleBufferRef;
typedef long CMItemCount;
typedef long CMItemIndex;

AU_ENUM(OSStatus){
    kCMSampleBufferError_AllocationFailed = -12730,
    kCMSampleBufferError_RequiredParameterMissing = -12731,
    kCMSampleBufferError_AlreadyHasDataBuffer = -12732,
    kCMSampleBufferError_BufferNotReady = -12733,
    kCMSampleBufferError_SampleIndexOutOfRange = -12734,
    kCMSampleBufferError_BufferHasNoSampleSizes = -12735,
    kCMSampleBufferError_BufferHasNoSampleTimingInfo = -12736,
    kCMSampleBufferError_ArrayTooSmall = -12737,
    kCMSampleBufferError_InvalidEntryCount = -12738,
    kCMSampleBufferError_SampleTimingInfoInvalid = -12740,
    kCMSampleBufferError_InvalidMediaTypeForOperation = -12741,
    kCMSampleBufferError_InvalidMediaFormat = -12743,
    kCMSampleBufferError_Invalidated = -12744,
};

AU_ENUM(uint32_t){
    /* Every buffer of the list begins at a multiple of 16 bytes. */
    kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment = 1U << 0,
};

/** [host thread] Fetches the data of a buffer that was made without; a status other than 0 means it
 * could not. */
typedef OSStatus (*CMSampleBufferMakeDataReadyCallback)(CMSampleBufferRef sbuf,
                                                        void* makeDataReadyRefcon);

/** [host thread] A sample buffer that holds references to `dataBuffer` and `formatDescription`
 * (either may be null) and copies of the arrays. There may be none, one or `numSamples` timing
 * entries (one stands for all samples) and size entries.
 * kCMSampleBufferError_RequiredParameterMissing for a null result pointer, a count without its
 * array, or a buffer or description that is not live; kCMSampleBufferError_InvalidEntryCount for a
 * negative or other count; kCMSampleBufferError_AllocationFailed. The result is null on any error.
 */
AU_EXPORT OSStatus CMSampleBufferCreate(
    CFAllocatorRef allocator, CMBlockBufferRef dataBuffer, Boolean dataReady,
    CMSampleBufferMakeDataReadyCallback makeDataReadyCallback, void* makeDataReadyRefcon,
    CMFormatDescriptionRef formatDescription, CMItemCount numSamples,
    CMItemCount numSampleTimingEntries, const CMSampleTimingInfo* sampleTimingArray,
    CMItemCount numSampleSizeEntries, const size_t* sampleSizeArray, CMSampleBufferRef* sBufOut);

/** [host thread] Copies the list's data into a block buffer of its own (channels that are not
 * interleaved one after the other), attaches that and marks the data ready. The memory always
 * begins at a multiple of 16 bytes, whatever `flags` say.
 *  kCMSampleBufferError_RequiredParameterMissing when a buffer of the list is missing or does not
 *  hold exactly the samples promised at creation, or an argument is null or not live;
 *  kCMSampleBufferError_InvalidMediaTypeForOperation without an audio description;
 *  kCMSampleBufferError_AlreadyHasDataBuffer; kCMBlockBufferBlockAllocationFailedErr. */
AU_EXPORT OSStatus CMSampleBufferSetDataBufferFromAudioBufferList(
    CMSampleBufferRef sbuf, CFAllocatorRef blockBufferStructureAllocator,
    CFAllocatorRef blockBufferBlockAllocator, uint32_t flags, const AudioBufferList* bufferList);

/** [host thread] Runs the callback given at creation unless the data is ready already.
 *  kCMSampleBufferError_BufferNotReady without a callback, else the callback's status. */
AU_EXPORT OSStatus CMSampleBufferMakeDataReady(CMSampleBufferRef sbuf);

/* [host thread] The getters answer 0, null, false or kCMTimeInvalid when `sbuf` is no live sample
 * buffer. What they return belongs to the buffer and is valid as long as it. */

AU_EXPORT CMItemCount CMSampleBufferGetNumSamples(CMSampleBufferRef sbuf);
AU_EXPORT CMFormatDescriptionRef CMSampleBufferGetFormatDescription(CMSampleBufferRef sbuf);
AU_EXPORT CMBlockBufferRef CMSampleBufferGetDataBuffer(CMSampleBufferRef sbuf);
AU_EXPORT Boolean CMSampleBufferDataIsReady(CMSampleBufferRef sbuf);

/** [host thread] The first sample's times; kCMTimeInvalid without timing entries. */
AU_EXPORT CMTime CMSampleBufferGetPresentationTimeStamp(CMSampleBufferRef sbuf);
AU_EXPORT CMTime CMSampleBufferGetDecodeTimeStamp(CMSampleBufferRef sbuf);

/** [host thread] The duration of all samples together; kCMTimeInvalid when one of them has none. */
AU_EXPORT CMTime CMSampleBufferGetDuration(CMSampleBufferRef sbuf);

/** [host thread] The times of one sample; with one entry for all, sample i starts i durations
 * later. kCMSampleBufferError_RequiredParameterMissing,
 * kCMSampleBufferError_BufferHasNoSampleTimingInfo, kCMSampleBufferError_SampleIndexOutOfRange. */
AU_EXPORT OSStatus CMSampleBufferGetSampleTimingInfo(CMSampleBufferRef sbuf,
                                                     CMItemIndex sampleIndex,
                                                     CMSampleTimingInfo* timingInfoOut);

/** [host thread] The size of one sample in bytes: its size entry, else the frame size of linear
 * PCM; 0 when neither is known or the index is out of range. */
AU_EXPORT size_t CMSampleBufferGetSampleSize(CMSampleBufferRef sbuf, CMItemIndex sampleIndex);

/** [host thread] Points `bufferListOut` at the data and hands out a reference to the block buffer
 * that keeps it alive. With a null list only `bufferListSizeNeededOut` (which may be null) is
 * filled in. With the alignment flag and channels that do not lie at multiples of 16 bytes, the
 * data is copied to a new block buffer. kCMSampleBufferError_RequiredParameterMissing for a list
 * without `blockBufferOut`, or no live buffer; kCMSampleBufferError_InvalidMediaTypeForOperation
 * without a linear PCM description; kCMSampleBufferError_BufferNotReady without ready data;
 *  kCMSampleBufferError_InvalidMediaFormat when the data is shorter than the samples;
 *  kCMSampleBufferError_ArrayTooSmall; kCMBlockBufferBlockAllocationFailedErr. */
AU_EXPORT OSStatus CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
    CMSampleBufferRef sbuf, size_t* bufferListSizeNeededOut, AudioBufferList* bufferListOut,
    size_t bufferListSize, CFAllocatorRef blockBufferStructureAllocator,
    CFAllocatorRef blockBufferBlockAllocator, uint32_t flags, CMBlockBufferRef* blockBufferOut);

/** [host thread] Copies `numFrames` frames from `frameOffset` on into the list's own memory and
 * sets its sizes. Errors as above, kCMSampleBufferError_SampleIndexOutOfRange for frames that are
 * not there, and kCMSampleBufferError_ArrayTooSmall for a list with other buffers or too little
 * room. */
AU_EXPORT OSStatus CMSampleBufferCopyPCMDataIntoAudioBufferList(CMSampleBufferRef sbuf,
                                                                int32_t frameOffset,
                                                                int32_t numFrames,
                                                                AudioBufferList* bufferList);

#ifdef __cplusplus
}
#endif

#endif
