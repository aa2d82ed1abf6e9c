#include "unit/BusMemory.h"

#include <algorithm>

namespace tqplatform {

BusMemory::BusMemory(const PCMFormat& format, UInt32 maximumFrames)
    : format_(format),
      planeBytes_(
          tqcommon::AlignedBytes::wholeLines(std::size_t{format.bytesPerFrame} * maximumFrames)),
      data_(planeBytes_ * format.bufferCount()),
      listBytes_(offsetof(AudioBufferList, mBuffers) + sizeof(AudioBuffer) * format.bufferCount()),
      list_(reinterpret_cast<AudioBufferList*>(listBytes_.data())) {
    static_cast<void>(prepare(maximumFrames, true));
}

AudioBufferList& BusMemory::prepare(UInt32 frames, bool withData) noexcept {
    list_->mNumberBuffers = format_.bufferCount();
    const UInt32 bytes = frames * format_.bytesPerFrame;
    for (UInt32 i = 0; i < format_.bufferCount(); ++i) {
        std::byte* const data = withData ? plane(i) : nullptr;
        if (withData) {
            writeSilence(format_, data, bytes);
        }
        buffersOf(*list_)[i] = {format_.interleaved ? format_.channels : 1, bytes, data};
    }
    return *list_;
}

void BusMemory::lend(AudioBufferList& list, UInt32 frames) noexcept {
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        AudioBuffer& buffer = buffersOf(list)[i];
        buffer.mDataByteSize = frames * format_.bytesPerFrame;
        if (buffer.mData == nullptr) {
            buffer.mData = plane(i);
            buffer.mNumberChannels = format_.interleaved ? format_.channels : 1;
        }
    }
}

UInt32 framesIn(const AudioBufferList& list, const PCMFormat& format, UInt32 frames) noexcept {
    if (list.mNumberBuffers < format.bufferCount()) {
        return 0;
    }
    UInt32 held = frames;
    for (UInt32 i = 0; i < format.bufferCount(); ++i) {
        const AudioBuffer& buffer = buffersOf(list)[i];
        held = buffer.mData == nullptr
                   ? 0
                   : std::min(held, buffer.mDataByteSize / format.bytesPerFrame);
    }
    return held;
}

void silence(AudioBufferList& list, const PCMFormat& format) noexcept {
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        const AudioBuffer& buffer = buffersOf(list)[i];
        if (buffer.mData != nullptr) {
            writeSilence(format, buffer.mData, buffer.mDataByteSize);
        }
    }
}

bool sameFormat(const PCMFormat& a, const PCMFormat& b) noexcept {
    return a.type == b.type && a.bigEndian == b.bigEndian && a.interleaved == b.interleaved &&
           a.channels == b.channels && a.bytesPerFrame == b.bytesPerFrame &&
           a.sampleRate == b.sampleRate;
}

}  // namespace tqplatform
