#include "unit/BusReader.h"

namespace tqplatform {

BusReader::BusReader(const PCMFormat& format, UInt32 channels, UInt32 maximumFrames)
    : memory_(format, maximumFrames),
      channels_(channels),
      maximumFrames_(maximumFrames),
      planes_(format.channels == channels ? 0 : format.channels, maximumFrames) {
}

OSStatus BusReader::read(const BusPull& pull, UInt32 frames, float* const* planes) noexcept {
    const PCMFormat& format = memory_.format();
    // A connected unit renders into memory of its own, which is read where it is.
    const bool withData = pull.allocate && !pull.source.isConnection();
    AudioBufferList& list = memory_.prepare(frames, withData);
    const OSStatus status = pull.source.pull(pull.flags, pull.time, pull.bus, frames, list);
    const UInt32 held = status == noErr ? framesIn(list, format, frames) : 0;
    if (format.channels == channels_) {
        if (held > 0) {
            toFloat(list, format, held, planes);
        }
    } else if (held > 0) {
        toFloat(list, format, held, planes_.data());
        mapChannels(planes_.data(), format.channels, planes, channels_, held);
    }
    silence(planes, channels_, held, frames - held);
    return status;
}

bool BusReader::fits(const PCMFormat& format, UInt32 channels,
                     UInt32 maximumFrames) const noexcept {
    return sameFormat(memory_.format(), format) && channels_ == channels &&
           maximumFrames_ == maximumFrames;
}

}  // namespace tqplatform
