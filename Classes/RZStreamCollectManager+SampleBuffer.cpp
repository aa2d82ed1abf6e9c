#include <cstring>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "RZLogSite.h"
#include "RZNumbers.h"
#include "RZStreamCollectManager.h"
#include "common/ForkLocks.h"

// What listeners may use on a block: the platform's sample buffer made of it, and a test for
// garbage.

namespace {

constexpr const char* kFile = "Classes/RZStreamCollectManager";

AudioStreamBasicDescription streamDescription(const RZReplayASBDInfo& info) {
    AudioStreamBasicDescription desc{};
    desc.mSampleRate = info.sampleRate();
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mFormatFlags = info.formatFlags();
    desc.mChannelsPerFrame = static_cast<UInt32>(info.channelsPerFrame());
    desc.mBitsPerChannel = static_cast<UInt32>(info.bitsPerChannel());
    desc.mBytesPerFrame = (desc.mChannelsPerFrame * desc.mBitsPerChannel) >> 3;
    desc.mBytesPerPacket = desc.mBytesPerFrame;
    desc.mFramesPerPacket = 1;
    return desc;
}

/// Made from the first description that comes and kept for the life of the process.
CMAudioFormatDescriptionRef cachedFormatDescription(const AudioStreamBasicDescription& desc) {
    static std::mutex mutex;
    static const tqcommon::ForkLock atFork(tqcommon::ForkOrder::Statistics, mutex);
    static CMAudioFormatDescriptionRef cached = nullptr;
    const std::scoped_lock guard(mutex);
    if (cached == nullptr) {
        CMAudioFormatDescriptionCreate(kCFAllocatorDefault, &desc, 0, nullptr, 0, nullptr, nullptr,
                                       &cached);
    }
    return cached;
}

/// How samples lie in a block: what the platform holds a list against before it takes its data.
auto layoutOf(const AudioStreamBasicDescription& desc) {
    const bool isPlanar = (desc.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    return std::pair(desc.mBytesPerFrame, isPlanar ? desc.mChannelsPerFrame : 1);
}

bool hasLayoutOf(CMAudioFormatDescriptionRef label, const AudioStreamBasicDescription& desc) {
    const AudioStreamBasicDescription* const stream =
        CMAudioFormatDescriptionGetStreamBasicDescription(label);
    return stream == nullptr || layoutOf(*stream) == layoutOf(desc);
}

struct Release {
    void operator()(const void* object) const { CFRelease(object); }
};
template <class Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

/// The data of a block whose samples lie otherwise than the label says: taken under a description
/// of its own, since under the label the platform refuses it. Null when it is refused there, too.
Owned<CMSampleBufferRef> dataUnderItsOwnLabel(const AudioStreamBasicDescription& desc,
                                              const AudioBufferList* list, CMItemCount samples) {
    CMAudioFormatDescriptionRef made = nullptr;
    CMAudioFormatDescriptionCreate(kCFAllocatorDefault, &desc, 0, nullptr, 0, nullptr, nullptr,
                                   &made);
    const Owned<CMAudioFormatDescriptionRef> own(made);
    CMSampleBufferRef filled = nullptr;
    CMSampleBufferCreate(kCFAllocatorDefault, nullptr, false, nullptr, nullptr, own.get(), samples,
                         0, nullptr, 0, nullptr, &filled);
    Owned<CMSampleBufferRef> result(filled);
    if (result == nullptr || CMSampleBufferSetDataBufferFromAudioBufferList(
                                 filled, kCFAllocatorDefault, kCFAllocatorDefault, 0, list) != 0) {
        return nullptr;
    }
    return result;
}

}  // namespace

CMSampleBufferRef RZStreamCollectManager::createSampleBufferFromAudioBufferList(
    const AudioBufferList* list, const RZReplayASBDInfo& description,
    CMTime presentationTimeStamp) {
    constexpr RZLogSite site(kFile,
                             "-[RZStreamCollectManager "
                             "createSampleBufferFromAudioBufferList:description:"
                             "atPresentationTimeStamp:]");
    const AudioStreamBasicDescription desc = streamDescription(description);
    CMSampleTimingInfo timing{};
    timing.duration = CMTimeMake(1, truncateToInt32(desc.mSampleRate));
    timing.presentationTimeStamp = presentationTimeStamp;
    timing.decodeTimeStamp = kCMTimeInvalid;

    const UInt32 bytes =
        list == nullptr || list->mNumberBuffers == 0 ? 0 : list->mBuffers[0].mDataByteSize;
    const CMItemCount samples = desc.mBytesPerFrame == 0 ? 0 : bytes / desc.mBytesPerFrame;
    const CMAudioFormatDescriptionRef label = cachedFormatDescription(desc);
    const auto data =
        hasLayoutOf(label, desc) ? nullptr : dataUnderItsOwnLabel(desc, list, samples);
    CMSampleBufferRef sampleBuffer = nullptr;
    const OSStatus created = CMSampleBufferCreate(
        kCFAllocatorDefault, data ? CMSampleBufferGetDataBuffer(data.get()) : nullptr,
        data != nullptr, nullptr, nullptr, label, samples, 1, &timing, 0, nullptr, &sampleBuffer);
    if (created != 0) {
        site.log(2, "CMSampleBufferCreate error");
        return nullptr;
    }
    if (data != nullptr) {
        return sampleBuffer;
    }
    const OSStatus attached = CMSampleBufferSetDataBufferFromAudioBufferList(
        sampleBuffer, kCFAllocatorDefault, kCFAllocatorDefault, 0, list);
    if (attached != 0) {
        // The half-built buffer is deliberately not released here.
        site.log(2, "CMSampleBufferSetDataBufferFromAudioBufferList error:%d", attached);
        return nullptr;
    }
    return sampleBuffer;
}

BOOL RZStreamCollectManager::checkAudioRealTimeError(const AudioBufferList* list) const {
    if (list == nullptr || list->mNumberBuffers == 0 || list->mBuffers[0].mData == nullptr) {
        return NO;
    }
    const AudioBuffer& buffer = list->mBuffers[0];
    const auto isGarbage = [&buffer](std::size_t offset) {
        std::uint32_t word = 0;
        if (offset + sizeof(word) > buffer.mDataByteSize) {
            return false;
        }
        std::memcpy(&word, static_cast<const char*>(buffer.mData) + offset, sizeof(word));
        return word == 0x80007FFF || word == 0x7FFF8000 || word == 0x80000000 || word == 0x7FFF0000;
    };
    return isGarbage(0) || isGarbage(4);
}
