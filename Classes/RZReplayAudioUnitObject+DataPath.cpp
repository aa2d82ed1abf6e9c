#include <sample_conversion.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <new>

#include "RZBufferList.h"
#include "RZLogSite.h"
#include "RZNumbers.h"
#include "RZReplayAudioUnitObject.h"
#include "TQAudioRecordLock.h"
#include "tq_events.h"

// The four methods that move PCM. All run on render threads: the writer's side on the host's,
// the reader's on the private graph's.

namespace {

constexpr const char* kFile = "Classes/RZReplayAudioUnitObject";
constexpr int kErrorLevel = 4;

/// The gain stage's name for a format, -1 when it has none.
int volumeFormat(const AudioStreamBasicDescription& desc) {
    const bool isBigEndian = (desc.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    if ((desc.mFormatFlags & kAudioFormatFlagIsFloat) != 0) {
        // Of 64 bits the gain stage would make pairs of single ones: silence or noise.
        return isBigEndian || desc.mBitsPerChannel != 32 ? -1 : 2;
    }
    if ((desc.mFormatFlags & kAudioFormatFlagIsSignedInteger) == 0 || isBigEndian) {
        return -1;
    }
    switch (desc.mBitsPerChannel) {
        case 16:
            return 0;
        case 32:
            return 1;
        default:
            return -1;
    }
}

void swapBytes(std::uint32_t* words, UInt32 count) {
    std::transform(words, words + count, words, [](std::uint32_t word) {
        return word >> 24U | (word >> 8U & 0xff00U) | (word << 8U & 0xff0000U) | word << 24U;
    });
}

void swapBytes(std::uint16_t* words, UInt32 count) {
    std::transform(words, words + count, words, [](std::uint16_t word) {
        return static_cast<std::uint16_t>(word >> 8U | word << 8U);
    });
}

}  // namespace

/// A write is under way for as long as this lives.
class RZReplayAudioUnitObject::WriteScope {
  public:
    explicit WriteScope(RZReplayAudioUnitObject& obj) noexcept : isWriting_(obj.isWriting_) {
        isWriting_.store(true);
    }
    ~WriteScope() { isWriting_.store(false, std::memory_order_release); }
    WriteScope(const WriteScope&) = delete;
    WriteScope& operator=(const WriteScope&) = delete;

  private:
    std::atomic<bool>& isWriting_;
};

template <class... Arguments>
void RZReplayAudioUnitObject::raise(const RZLogSite& site, int category, int code,
                                    RZLogFormat format, const Arguments&... arguments) {
    const std::string message = RZFormat(format.text, arguments...);
    site.write(kErrorLevel, format.line, message);
    onAudioRecordEvent(static_cast<std::uint64_t>(category), static_cast<std::uint64_t>(code),
                       message);
}

BOOL RZReplayAudioUnitObject::tryWriteBuffersFrom(const AudioBufferList* list, UInt32 frames,
                                                  BOOL isProcessed) {
    constexpr RZLogSite site(
        kFile, "-[RZReplayAudioUnitObject tryWriteBuffersFrom:numberFrames:isProcessed:]");
    if (!isCapturing() || list == nullptr || list->mNumberBuffers == 0) {
        account().lost(isProcessed,
                       isCapturing() ? RZFrameLoss::WrongSize : RZFrameLoss::NotCapturing, frames);
        return YES;
    }
    const AudioStreamBasicDescription desc = streamDesc();
    const UInt32 bitsPerChannel = desc.mBitsPerChannel;
    const WriteScope write(*this);
    // Asked again: a capture that starts anew waits for writes that have begun, for no others.
    if (!isCapturing() || !isBlockKnown()) {
        account().lost(isProcessed,
                       isCapturing() ? RZFrameLoss::FormatChanged : RZFrameLoss::NotCapturing,
                       frames);
        return YES;
    }
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i) {
        const AudioBuffer& b = list->mBuffers[i];
        RZReplayAudioUnitBuffer* const buffer = getOrCreateBufferAt(static_cast<int>(i));
        // The buffer's channel count, not the stream's: a host may render mono buffers under a
        // stereo description.
        const UInt32 size = (b.mNumberChannels * frames * bitsPerChannel) >> 3;
        if (size > b.mDataByteSize) {
            if (i == 0) {
                account().lost(isProcessed, RZFrameLoss::WrongSize, frames);
            }
            if (eventFilter_->FilterEvent(TQ_EVENT_BUFFER_WRITE, TQ_EVENT_SIZE_MISMATCH)) {
                raise(site, TQ_EVENT_BUFFER_WRITE, TQ_EVENT_SIZE_MISMATCH,
                      "[buffer] [%p] [%d] write size mis match. record: %d, input: %d", this, i,
                      size, b.mDataByteSize);
            }
        } else if (buffer->writeAudioBuffer(b, size, isProcessed) == 0) {
            if (i == 0) {
                account().lost(isProcessed, RZFrameLoss::RingFull, frames);
            }
            if (eventFilter_->FilterEvent(TQ_EVENT_BUFFER_WRITE, TQ_EVENT_NOTHING_WRITTEN)) {
                raise(site, TQ_EVENT_BUFFER_WRITE, TQ_EVENT_NOTHING_WRITTEN,
                      "[buffer] [%p] [%d] write size is zero. dataSize: %d and available: %ld",
                      this, i, size, static_cast<long>(buffer->getRingBufferSize(isProcessed)));
            }
        } else if (i == 0) {
            countWritten(*buffer, frames, size, desc.mBytesPerFrame, isProcessed);
        }
    }
    return YES;
}

void RZReplayAudioUnitObject::tryWriteSilence(UInt32 frames, BOOL isProcessed) {
    const AudioStreamBasicDescription desc = streamDesc();
    const bool isPlanar = (desc.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    const UInt32 bytes = frames * desc.mBytesPerFrame;
    std::byte* const memory = getOrCreateBufferAt(0)->ownMemory(bytes);
    constexpr std::size_t kListBytes =
        offsetof(AudioBufferList, mBuffers) + RZGivenMemory::kMostBuffers * sizeof(AudioBuffer);
    alignas(AudioBufferList) std::array<std::byte, kListBytes> place;
    AudioBufferList& list = *new (place.data()) AudioBufferList;
    list.mNumberBuffers =
        isPlanar ? std::min(desc.mChannelsPerFrame, RZGivenMemory::kMostBuffers) : 1;
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        list.mBuffers[i] = {isPlanar ? 1 : desc.mChannelsPerFrame, bytes, memory};
    }
    fillSilence(list, desc);
    tryWriteBuffersFrom(&list, frames, isProcessed);
}

/// What a ring took: not always what was rendered, and not always for long. The first buffer of a
/// list stands for all.
void RZReplayAudioUnitObject::countWritten(RZReplayAudioUnitBuffer& buffer, UInt32 frames,
                                           UInt32 size, UInt32 bytesPerFrame, BOOL isProcessed) {
    const std::size_t vanished = buffer.takeVanished(isProcessed);
    if (vanished == 0 && size == frames * bytesPerFrame) {
        return;
    }
    const UInt32 unit = std::max(bytesPerFrame, 1U);
    account().lost(isProcessed, RZFrameLoss::RingFull, vanished / unit);
    if (const UInt32 taken = size / unit; taken < frames) {
        account().lost(isProcessed, RZFrameLoss::WrongSize, frames - taken);
    }
}

RZReplayAudioUnitObject::ReadSizes RZReplayAudioUnitObject::readSizes(UInt32 frames,
                                                                      BOOL isProcessed) const {
    const AudioStreamBasicDescription desc = streamDesc();
    const UInt32 record = desc.mBytesPerFrame * frames;
    const BOOL bigEndian = (desc.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0;
    if (!isReadAsS16(isProcessed)) {
        return {record, record, NO, NO, bigEndian};
    }
    const UInt32 target = s16FormatStreamDesc().mBytesPerFrame * frames;
    return {record, target, record != 2 * target, YES, bigEndian};
}

BOOL RZReplayAudioUnitObject::tryReadBuffersTo(AudioBufferList* list, UInt32 frames,
                                               BOOL isProcessed) {
    const BOOL pending =
        isProcessed ? pendingCleanPostRingBuffer_.exchange(NO) : pendingCleanPostRingBuffer();
    if (list == nullptr || list->mNumberBuffers == 0) {
        return NO;
    }
    const BOOL clean = pending && isProcessed;
    const ReadSizes sizes = readSizes(frames, isProcessed);
    BOOL result = NO;
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i) {
        const TQAudioRecordLock guard(bufferLock_);
        if (readBufferAt(i, *list, frames, isProcessed, clean, sizes)) {
            result = YES;
        } else {
            fillSilence(list->mBuffers[i]);
        }
    }
    return result;
}

/// One buffer of a read, under bufferLock. NO leaves the buffer for silence.
BOOL RZReplayAudioUnitObject::readBufferAt(UInt32 index, AudioBufferList& list, UInt32 frames,
                                           BOOL isProcessed, BOOL clean, const ReadSizes& sizes) {
    constexpr RZLogSite site(
        kFile, "-[RZReplayAudioUnitObject tryReadBuffersTo:numberFrames:isProcessed:]");
    AudioBuffer& b = list.mBuffers[index];
    if (bufferList_.size() <= index) {
        fillSilence(b);
        if (eventFilter_->FilterEvent(TQ_EVENT_BUFFER_READ, TQ_EVENT_BUFFERS_MISSING)) {
            raise(site, TQ_EVENT_BUFFER_READ, TQ_EVENT_BUFFERS_MISSING,
                  "[buffer] [%p] read with diff buffer number. read: %d, write: %d", this,
                  list.mNumberBuffers, static_cast<int>(bufferList_.size()));
        }
        return NO;
    }
    RZReplayAudioUnitBuffer& buffer = *bufferList_[index];
    if (clean) {
        if (index == 0) {
            account().lost(YES, RZFrameLoss::DiscardedAtStart, waitingFrames(YES));
        }
        buffer.cleanPostRingBuffer();
        return NO;
    }
    if (sizes.target > b.mDataByteSize || sizes.mismatch) {
        if (eventFilter_->FilterEvent(TQ_EVENT_BUFFER_READ, TQ_EVENT_SIZE_MISMATCH)) {
            raise(site, TQ_EVENT_BUFFER_READ, TQ_EVENT_SIZE_MISMATCH,
                  "[buffer] [%p] [%d] read size mis match. record: %d, , target: %d, input: %d",
                  this, index, sizes.record, sizes.target, b.mDataByteSize);
        }
        return NO;
    }
    if (!sizes.toS16) {
        return buffer.readAudioBuffer(b, sizes.record, isProcessed) != 0;
    }
    const AudioBuffer copy = buffer.getCopyBufferBySize(sizes.record);
    if (b.mData == nullptr || buffer.readAudioBuffer(copy, sizes.record, isProcessed) == 0) {
        return NO;
    }
    // A buffer may claim more channels than the format has: limited to what both hold, and what the
    // track cannot fill is silent.
    const UInt32 room = b.mDataByteSize / static_cast<UInt32>(sizeof(SInt16));
    const UInt32 samples = std::min(
        {b.mNumberChannels * frames, sizes.record / static_cast<UInt32>(sizeof(float)), room});
    auto* const target = static_cast<SInt16*>(b.mData);
    if (sizes.bigEndian) {
        // What is read keeps the track's byte order, which its description and its bus name.
        swapBytes(static_cast<std::uint32_t*>(copy.mData), samples);
    }
    convertF32ToS16(static_cast<const float*>(copy.mData), target, samples);
    if (sizes.bigEndian) {
        swapBytes(static_cast<std::uint16_t*>(b.mData), samples);
    }
    std::fill(target + samples, target + std::min(b.mNumberChannels * frames, room), SInt16{0});
    return YES;
}

void RZReplayAudioUnitObject::convertF32ToS16(const float* src, SInt16* dst,
                                              UInt32 samples) noexcept {
    korva_audio_utils::ConvertFloatToInt16(src, dst, samples);
}

/// Buffers that the host has put in are its own: it plays them again, and they may be constant. All
/// are copied before any is processed, because several may be one. False without memory.
bool RZReplayAudioUnitObject::ownBuffers(AudioBufferList& list, UInt32 frames,
                                         const AudioStreamBasicDescription& desc) {
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        AudioBuffer& b = list.mBuffers[i];
        if (b.mData == nullptr || given_.has(i, b)) {
            continue;
        }
        // A host may hand over a table, which is longer than the block.
        const std::uint64_t used =
            std::max(std::uint64_t{frames} * desc.mBytesPerFrame,
                     std::uint64_t{frames} * b.mNumberChannels * desc.mBitsPerChannel / 8);
        b.mDataByteSize = static_cast<UInt32>(std::min<std::uint64_t>(b.mDataByteSize, used));
        std::byte* const own = getOrCreateBufferAt(static_cast<int>(i))->ownMemory(b.mDataByteSize);
        if (own == nullptr) {
            return false;
        }
        std::memcpy(own, b.mData, b.mDataByteSize);
        b.mData = own;
    }
    return true;
}

void RZReplayAudioUnitObject::processBuffer(AudioBufferList* list, UInt32 frames) {
    constexpr RZLogSite site(kFile, "-[RZReplayAudioUnitObject processBuffer:numberFrames:]");
    const AudioStreamBasicDescription desc = streamDesc();
    // Asked behind the description: processed in another format, the host's sound would be noise.
    if (!isBlockKnown()) {
        return;
    }
    const int format = volumeFormat(desc);
    if (format < 0) {
        if (eventFilter_->FilterEvent(TQ_EVENT_PROCESSING, TQ_EVENT_FORMAT_UNSUPPORTED)) {
            raise(site, TQ_EVENT_PROCESSING, TQ_EVENT_FORMAT_UNSUPPORTED,
                  "[buffer] unsupport pcm format: %d, bisPerChn: %d, chnPerFrame: %d",
                  desc.mFormatFlags, desc.mBitsPerChannel, desc.mChannelsPerFrame);
        }
        return;
    }
    if (list == nullptr || list->mNumberBuffers == 0 || !ownBuffers(*list, frames, desc)) {
        return;
    }
    for (UInt32 i = 0; i < list->mNumberBuffers; ++i) {
        RZReplayAudioUnitBuffer* const buffer = getOrCreateBufferAt(static_cast<int>(i));
        buffer->updateFS(truncateToInt32(desc.mSampleRate));
        buffer->processAudioData(list->mBuffers[i], static_cast<int>(desc.mChannelsPerFrame),
                                 format);
    }
}

void RZReplayAudioUnitObject::beginSamples() {
    getOrCreateBufferAt(0)->beginSound();
}

void RZReplayAudioUnitObject::processSamples(void* samples, UInt32 frames) {
    const AudioStreamBasicDescription desc = streamDesc();
    const int format = volumeFormat(desc);
    if (format < 0 || samples == nullptr) {
        return;
    }
    RZReplayAudioUnitBuffer* const buffer = getOrCreateBufferAt(0);
    buffer->updateFS(truncateToInt32(desc.mSampleRate));
    buffer->processAudioData({desc.mChannelsPerFrame, frames * desc.mBytesPerFrame, samples},
                             static_cast<int>(desc.mChannelsPerFrame), format);
}
