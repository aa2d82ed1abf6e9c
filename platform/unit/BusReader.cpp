#include "unit/BusReader.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace tqplatform {

BusReader::BusReader(const PCMFormat& format, UInt32 channels, UInt32 maximumFrames)
    : memory_(format, maximumFrames),
      channels_(channels),
      maximumFrames_(maximumFrames),
      planes_(format.channels == channels ? 0 : format.channels, maximumFrames) {
}

BusReader::Given BusReader::take(const BusPull& pull, UInt32 frames) noexcept {
    // A connected unit renders right into this memory: its own may go with it during the pull.
    AudioBufferList& list = memory_.prepare(frames, pull.allocate || pull.source.isConnection());
    const OSStatus status = pull.source.pull(pull.flags, pull.time, pull.bus, frames, list);
    return {list, status == noErr ? framesIn(list, memory_.format(), frames) : 0, status};
}

void BusReader::convert(const Given& given, UInt32 frames, float* const* planes) noexcept {
    const PCMFormat& format = memory_.format();
    if (format.channels == channels_) {
        if (given.held > 0) {
            toFloat(given.list, format, given.held, planes);
        }
    } else if (given.held > 0) {
        toFloat(given.list, format, given.held, planes_.data());
        mapChannels(planes_.data(), format.channels, planes, channels_, given.held);
    }
    silence(planes, channels_, given.held, frames - given.held);
}

OSStatus BusReader::read(const BusPull& pull, UInt32 frames, float* const* planes) noexcept {
    const Given given = take(pull, frames);
    convert(given, frames, planes);
    return given.status;
}

OSStatus BusReader::readInPlace(const BusPull& pull, UInt32 frames, float* const* planes,
                                const float** found) noexcept {
    const Given given = take(pull, frames);
    const PCMFormat& format = memory_.format();
    bool isInPlace = format.type == SampleType::float32 && !format.interleaved &&
                     format.bigEndian == (std::endian::native == std::endian::big) &&
                     format.channels == channels_ && given.held == frames &&
                     given.list.mNumberBuffers >= channels_;
    for (UInt32 channel = 0; isInPlace && channel < channels_; ++channel) {
        const void* const data = buffersOf(given.list)[channel].mData;
        // A program may have put in memory of its own, at any address.
        isInPlace = data != nullptr && reinterpret_cast<std::uintptr_t>(data) % alignof(float) == 0;
        found[channel] = static_cast<const float*>(data);
    }
    if (!isInPlace) {
        convert(given, frames, planes);
        std::copy_n(planes, channels_, found);
    }
    return given.status;
}

bool BusReader::fits(const PCMFormat& format, UInt32 channels,
                     UInt32 maximumFrames) const noexcept {
    return sameFormat(memory_.format(), format) && channels_ == channels &&
           maximumFrames_ == maximumFrames;
}

}  // namespace tqplatform
