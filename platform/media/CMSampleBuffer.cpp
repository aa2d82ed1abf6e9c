#include <CoreMedia/CMSampleBuffer.h>

#include <exception>
#include <limits>
#include <stdexcept>

#include "media/MediaTime.h"
#include "media/SampleBuffer.h"

namespace {

using tqplatform::CFReference;
using tqplatform::findObject;
using tqplatform::SampleBuffer;

/// One entry may stand for all samples.
bool isEntryCount(CMItemCount entries, CMItemCount samples) {
    return entries == 0 || entries == 1 || (entries > 0 && entries == samples);
}

template <class Entry>
std::vector<Entry> copyOf(const Entry* entries, CMItemCount count) {
    const auto size = static_cast<std::size_t>(count);
    if (size > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Entry)) {
        throw std::length_error("more entries than memory can hold");
    }
    return std::vector<Entry>(entries, entries + size);
}

const CMSampleTimingInfo* firstTiming(CMSampleBufferRef sbuf) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    return found != nullptr && !found->contents().timing.empty() ? &found->contents().timing.front()
                                                                 : nullptr;
}

}  // namespace

namespace tqplatform {

std::optional<PCMShape> SampleBuffer::pcmShape() const noexcept {
    const FormatDescription* const description = format();
    if (description == nullptr) {
        return std::nullopt;
    }
    const AudioStreamBasicDescription& stream = description->stream();
    if (stream.mFormatID != kAudioFormatLinearPCM || stream.mBytesPerFrame == 0 ||
        stream.mChannelsPerFrame == 0) {
        return std::nullopt;
    }
    const bool planar = (stream.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    return PCMShape{planar ? stream.mChannelsPerFrame : 1, planar ? 1 : stream.mChannelsPerFrame,
                    stream.mBytesPerFrame};
}

}  // namespace tqplatform

OSStatus CMSampleBufferCreate(CFAllocatorRef, CMBlockBufferRef dataBuffer, Boolean dataReady,
                              CMSampleBufferMakeDataReadyCallback makeDataReadyCallback,
                              void* makeDataReadyRefcon, CMFormatDescriptionRef formatDescription,
                              CMItemCount numSamples, CMItemCount numSampleTimingEntries,
                              const CMSampleTimingInfo* sampleTimingArray,
                              CMItemCount numSampleSizeEntries, const size_t* sampleSizeArray,
                              CMSampleBufferRef* sBufOut) {
    if (sBufOut == nullptr) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    *sBufOut = nullptr;
    if (numSamples < 0 || !isEntryCount(numSampleTimingEntries, numSamples) ||
        !isEntryCount(numSampleSizeEntries, numSamples)) {
        return kCMSampleBufferError_InvalidEntryCount;
    }
    const bool wrongData =
        dataBuffer != nullptr && findObject<tqplatform::BlockBuffer>(dataBuffer) == nullptr;
    const bool wrongFormat =
        formatDescription != nullptr &&
        findObject<tqplatform::FormatDescription>(formatDescription) == nullptr;
    if (wrongData || wrongFormat || (numSampleTimingEntries > 0 && sampleTimingArray == nullptr) ||
        (numSampleSizeEntries > 0 && sampleSizeArray == nullptr)) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    try {
        tqplatform::SampleBufferContents contents;
        contents.dataBuffer = CFReference(dataBuffer);
        contents.dataReady = dataReady != 0;
        contents.makeDataReady = makeDataReadyCallback;
        contents.makeDataReadyRefcon = makeDataReadyRefcon;
        contents.format = CFReference(formatDescription);
        contents.samples = numSamples;
        contents.timing = copyOf(sampleTimingArray, numSampleTimingEntries);
        contents.sizes = copyOf(sampleSizeArray, numSampleSizeEntries);
        *sBufOut = tqplatform::handleAs<CMSampleBufferRef>(
            tqplatform::handOut(std::make_unique<SampleBuffer>(std::move(contents))));
    } catch (const std::exception&) {
        return kCMSampleBufferError_AllocationFailed;
    }
    return noErr;
}

OSStatus CMSampleBufferMakeDataReady(CMSampleBufferRef sbuf) {
    auto* const found = findObject<SampleBuffer>(sbuf);
    if (found == nullptr) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    if (found->contents().dataReady) {
        return noErr;
    }
    if (found->contents().makeDataReady == nullptr) {
        return kCMSampleBufferError_BufferNotReady;
    }
    const OSStatus status =
        found->contents().makeDataReady(sbuf, found->contents().makeDataReadyRefcon);
    if (status == noErr) {
        found->markDataReady();
    }
    return status;
}

CMItemCount CMSampleBufferGetNumSamples(CMSampleBufferRef sbuf) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    return found != nullptr ? found->contents().samples : 0;
}

CMFormatDescriptionRef CMSampleBufferGetFormatDescription(CMSampleBufferRef sbuf) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    return found != nullptr
               ? tqplatform::handleAs<CMFormatDescriptionRef>(found->contents().format.get())
               : nullptr;
}

CMBlockBufferRef CMSampleBufferGetDataBuffer(CMSampleBufferRef sbuf) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    return found != nullptr
               ? tqplatform::handleAs<CMBlockBufferRef>(found->contents().dataBuffer.get())
               : nullptr;
}

Boolean CMSampleBufferDataIsReady(CMSampleBufferRef sbuf) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    return found != nullptr && found->contents().dataReady;
}

CMTime CMSampleBufferGetPresentationTimeStamp(CMSampleBufferRef sbuf) {
    const CMSampleTimingInfo* const first = firstTiming(sbuf);
    return first != nullptr ? first->presentationTimeStamp : kCMTimeInvalid;
}

CMTime CMSampleBufferGetDecodeTimeStamp(CMSampleBufferRef sbuf) {
    const CMSampleTimingInfo* const first = firstTiming(sbuf);
    return first != nullptr ? first->decodeTimeStamp : kCMTimeInvalid;
}

CMTime CMSampleBufferGetDuration(CMSampleBufferRef sbuf) {
    const CMSampleTimingInfo* const first = firstTiming(sbuf);
    if (first == nullptr) {
        return kCMTimeInvalid;
    }
    const auto& contents = findObject<SampleBuffer>(sbuf)->contents();
    if (contents.timing.size() == 1) {
        return tqplatform::multiplied(first->duration, contents.samples);
    }
    CMTime total = first->duration;
    for (std::size_t index = 1; index < contents.timing.size(); ++index) {
        total = tqplatform::added(total, contents.timing[index].duration);
    }
    return total;
}

OSStatus CMSampleBufferGetSampleTimingInfo(CMSampleBufferRef sbuf, CMItemIndex sampleIndex,
                                           CMSampleTimingInfo* timingInfoOut) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    if (found == nullptr || timingInfoOut == nullptr) {
        return kCMSampleBufferError_RequiredParameterMissing;
    }
    const auto& contents = found->contents();
    if (contents.timing.empty()) {
        return kCMSampleBufferError_BufferHasNoSampleTimingInfo;
    }
    if (sampleIndex < 0 || sampleIndex >= contents.samples) {
        return kCMSampleBufferError_SampleIndexOutOfRange;
    }
    if (contents.timing.size() > 1) {
        *timingInfoOut = contents.timing[static_cast<std::size_t>(sampleIndex)];
        return noErr;
    }
    CMSampleTimingInfo info = contents.timing.front();
    if (sampleIndex > 0) {
        const CMTime offset = tqplatform::multiplied(info.duration, sampleIndex);
        info.presentationTimeStamp = tqplatform::added(info.presentationTimeStamp, offset);
        info.decodeTimeStamp = tqplatform::added(info.decodeTimeStamp, offset);
    }
    *timingInfoOut = info;
    return noErr;
}

size_t CMSampleBufferGetSampleSize(CMSampleBufferRef sbuf, CMItemIndex sampleIndex) {
    const auto* const found = findObject<SampleBuffer>(sbuf);
    if (found == nullptr || sampleIndex < 0 || sampleIndex >= found->contents().samples) {
        return 0;
    }
    const std::vector<std::size_t>& sizes = found->contents().sizes;
    if (sizes.empty()) {
        const std::optional<tqplatform::PCMShape> shape = found->pcmShape();
        return shape ? std::size_t{shape->bytesPerFrame} * shape->buffers : 0;
    }
    return sizes.size() == 1 ? sizes.front() : sizes[static_cast<std::size_t>(sampleIndex)];
}
