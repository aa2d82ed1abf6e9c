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
    // A connected unit renders right into this memory: its own may go with it during the pull.
    AudioBufferList& list = memory_.prepare(frames, pull.allocate || pull.source.isConnection());
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
