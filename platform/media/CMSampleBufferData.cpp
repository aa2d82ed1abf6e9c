#include <CoreMedia/CMSampleBuffer.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "media/SampleBuffer.h"

// The ways of PCM data into a sample buffer and out of it.

namespace {

using tqplatform::BlockBuffer;
using tqplatform::CFReference;
using tqplatform::findObject;
using tqplatform::PCMShape;
using tqplatform::SampleBuffer;

/// Bytes of all samples in one buffer of the list. Frames beyond 32 bits fill no buffer at all, so
/// they may as well saturate.
UInt64 bytesPerBuffer(const PCMShape& shape, CMItemCount frames) {
    constexpr CMItemCount kMost = UINT32_MAX;
    return UInt64{shape.bytesPerFrame} * static_cast<UInt64>(std::min(frames, kMost));
}

/// True when the list holds just the samples that were promised.
bool holdsSamples(const AudioBufferList& list, const SampleBuffer& sampleBuffer) {
    const std::optional<PCMShape> shape = sampleBuffer.pcmShape();
    if (!shape || list.mNumberBuffers != shape->buffers) {
        return false;
    }
    const UInt64 expected = bytesPerBuffer(*shape, sampleBuffer.contents().samples);
    return expected > 0 && std::all_of(list.mBuffers, list.mBuffers + list.mNumberBuffers,
                                       [expected](const AudioBuffer& buffer) {
                                           return buffer.mData != nullptr &&
                                                  buffer.mDataByteSize == expected;
                                       });
}

/// A reference to a new block buffer; holds nothing when there is no memory.
CFReference makeBlockBuffer(std::size_t length) noexcept {
    try {
        return CFReference::adopt(tqplatform::handOut(std::make_unique<BlockBuffer>(length)));
    } catch (const std::exception&) {
        return {};
    }
}

/// A sample buffer with its PCM data, checked so far that the data can be read.
struct ReadableSamples {
    PCMShape shape{};
    const BlockBuffer* data = nullptr;
    std::size_t bytesPerBuffer = 0;
};

OSStatus findSamples(const SampleBuffer& sampleBuffer, ReadableSamples& samples) {
    const std::optional<PCMShape> shape = sampleBuffer.pcmShape();
    if (!shape) {
        return kCMSampleBufferError_InvalidMediaTypeForOperation;
    }
    const BlockBuffer* const data = sampleBuffer.dataBuffer();
    if (data == nullptr || !sampleBuffer.contents().dataReady) {
        return kCMSampleBufferError_BufferNotReady;
    }
    const UInt64 each = bytesPerBuffer(*shape, sampleBuffer.contents().samples);
    // Divided rather than multiplied, which could overflow.
    if (each > data->length() / shape->buffers) {
        return kCMSampleBufferError_InvalidMediaFormat;
    }
    samples = {*shape, data, static_cast<std::size_t>(each)};
    return noErr;
}

std::size_t alignedUp(std::size_t size) {
    return (size + BlockBuffer::kAlignment - 1) / BlockBuffer::kAlignment * BlockBuffer::kAlignment;
}

/// The same samples with every buffer at a multiple of 16 bytes.
CFReference alignedCopy(const ReadableSamples& samples) noexcept {
    const std::size_t stride = alignedUp(samples.bytesPerBuffer);
    CFReference copy = makeBlockBuffer(stride * samples.shape.buffers);
    if (const auto* const memory = findObject<BlockBuffer>(copy.get())) {
        for (std::size_t buffer = 0; buffer < samples.shape.buffers; ++buffer) {
            std::byte* const end =
                std::copy_n(samples.data->data() + buffer * samples.bytesPerBuffer,
                            samples.bytesPerBuffer, memory->data() + buffer * stride);
            std::fill(end, memory->data() + (buffer + 1) * stride, std::byte{0});
        }
    }
    return copy;
}

}  // namespace

OSStatus CMSampleBufferSetDataBufferFromAudioBufferList(CMSampleBufferRef sbuf, CFAllocatorRef,
                                                        CFAllocatorRef, uint32_t,
                                                        const AudioBufferList* bufferList) {
    auto* const found = findObject<SampleBuffer>(sbuf);
    if (found == nullptr || bufferList == nullptr) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    if (found->format() == nullptr) {
        return kCMSampleBufferError_InvalidMediaTypeForOperation;
    }
    if (found->dataBuffer() != nullptr) {
        return kCMSampleBufferError_AlreadyHasDataBuffer;
    }
    if (!holdsSamples(*bufferList, *found)) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    const std::size_t each = bufferList->mBuffers[0].mDataByteSize;
    CFReference data = makeBlockBuffer(each * bufferList->mNumberBuffers);
    const auto* const memory = findObject<BlockBuffer>(data.get());
    if (memory == nullptr) {
        return kCMBlockBufferBlockAllocationFailedErr;
    }
    std::byte* target = memory->data();
    for (UInt32 index = 0; index < bufferList->mNumberBuffers; ++index) {
        target = std::copy_n(static_cast<const std::byte*>(bufferList->mBuffers[index].mData), each,
                             target);
    }
    found->attachData(std::move(data));
    return noErr;
}

OSStatus CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
    CMSampleBufferRef sbuf, size_t* bufferListSizeNeededOut, AudioBufferList* bufferListOut,
    size_t bufferListSize, CFAllocatorRef, CFAllocatorRef, uint32_t flags,
    CMBlockBufferRef* blockBufferOut) {
    if (blockBufferOut != nullptr) {
        *blockBufferOut = nullptr;
    }
    const auto* const found = findObject<SampleBuffer>(sbuf);
    if (found == nullptr || (bufferListOut != nullptr && blockBufferOut == nullptr)) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    const std::optional<PCMShape> shape = found->pcmShape();
    if (!shape) {
        return kCMSampleBufferError_InvalidMediaTypeForOperation;
    }
    const std::size_t sizeNeeded =
        offsetof(AudioBufferList, mBuffers) + sizeof(AudioBuffer) * shape->buffers;
    if (bufferListSizeNeededOut != nullptr) {
        *bufferListSizeNeededOut = sizeNeeded;
    }
    if (bufferListOut == nullptr) {
        return noErr;
    }
    ReadableSamples samples;
    if (const OSStatus status = findSamples(*found, samples); status != noErr) {
        return status;
    }
    if (bufferListSize < sizeNeeded) {
        return kCMSampleBufferError_ArrayTooSmall;
    }
    CFReference data(found->contents().dataBuffer.get());
    std::size_t stride = samples.bytesPerBuffer;
    const bool wantsAlignment =
        (flags & kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment) != 0;
    if (wantsAlignment && shape->buffers > 1 && stride % BlockBuffer::kAlignment != 0) {
        data = alignedCopy(samples);
        stride = alignedUp(stride);
    }
    const auto* const memory = findObject<BlockBuffer>(data.get());
    if (memory == nullptr) {
        return kCMBlockBufferBlockAllocationFailedErr;
    }
    bufferListOut->mNumberBuffers = shape->buffers;
    for (std::size_t index = 0; index < shape->buffers; ++index) {
        bufferListOut->mBuffers[index] = {shape->channelsPerBuffer,
                                          static_cast<UInt32>(samples.bytesPerBuffer),
                                          memory->data() + index * stride};
    }
    *blockBufferOut = tqplatform::handleAs<CMBlockBufferRef>(data.release());
    return noErr;
}

OSStatus CMSampleBufferCopyPCMDataIntoAudioBufferList(CMSampleBufferRef sbuf, int32_t frameOffset,
                                                      int32_t numFrames,
                                                      AudioBufferList* bufferList) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    if (found == nullptr || bufferList == nullptr) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    ReadableSamples samples;
    if (const OSStatus status = findSamples(*found, samples); status != noErr) {
        return status;
    }
    if (frameOffset < 0 || numFrames < 0 ||
        CMItemCount{frameOffset} + numFrames > found->contents().samples) {
        return kCMSampleBufferError_SampleIndexOutOfRange;
    }
    const std::size_t frameSize = samples.shape.bytesPerFrame;
    const std::size_t size = frameSize * static_cast<std::size_t>(numFrames);
    if (bufferList->mNumberBuffers != samples.shape.buffers) {
        return kCMSampleBufferError_ArrayTooSmall;
    }
    for (UInt32 index = 0; index < bufferList->mNumberBuffers; ++index) {
        if (bufferList->mBuffers[index].mData == nullptr) {
            return kCMSampleBufferError_RequiredParameterMissing;
        }
        if (bufferList->mBuffers[index].mDataByteSize < size) {
            return kCMSampleBufferError_ArrayTooSmall;
        }
    }
    const std::byte* source =
        samples.data->data() + frameSize * static_cast<std::size_t>(frameOffset);
    for (UInt32 index = 0; index < bufferList->mNumberBuffers; ++index) {
        AudioBuffer& buffer = bufferList->mBuffers[index];
        std::memcpy(buffer.mData, source, size);
        buffer.mDataByteSize = static_cast<UInt32>(size);
        source += samples.bytesPerBuffer;
    }
    return noErr;
}
