#include "unit/BusReader.h"

#include <bit>
#include <cstdint>
#include <utility>

namespace tqplatform {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;

BusReader::BusReader(const PCMFormat& format, UInt32 channels, UInt32 maximumFrames,
                     ChannelFold fold)
    : memory_(format, maximumFrames),
      channels_(channels),
      maximumFrames_(maximumFrames),
      fold_(std::move(fold)),
      planes_(format.channels == channels ? 0 : format.channels, maximumFrames) {
}

BusReader::Given BusReader::take(const BusPull& pull, UInt32 frames) noexcept {
    // A connected unit renders right into this memory: its own may go with it during the pull.
    AudioBufferList& list = memory_.prepare(frames, pull.allocate || pull.source.isConnection());
    const OSStatus status = pull.source.pull(pull.flags, pull.time, pull.bus, frames, list);
    // Sources that say so clear the bits, which is not silence where samples are unsigned.
    const bool isSilent =
        memory_.format().isUnsigned() && (pull.flags & kAudioUnitRenderAction_OutputIsSilence) != 0;
    const bool counts = status == noErr && !isSilent;
    return {list, counts ? framesIn(list, memory_.format(), frames) : 0, status};
}

void BusReader::convert(const Given& given, const AudioView& planes) noexcept {
    const PCMFormat& format = memory_.format();
    const AudioView held = planes.slice(0, given.held);
    if (given.held == 0) {
        // Nothing to convert.
    } else if (format.channels == channels_) {
        toFloat(given.list, format, held);
    } else {
        const AudioView own = planes_.view(given.held);
        toFloat(given.list, format, own);
        if (fold_.exists()) {
            fold_.apply(own, held);
        } else {
            mapChannels(own, held);
        }
    }
    silence(planes.slice(given.held, planes.frames() - given.held));
}

OSStatus BusReader::read(const BusPull& pull, const AudioView& planes) noexcept {
    const Given given = take(pull, planes.frames());
    convert(given, planes);
    return given.status;
}

OSStatus BusReader::readInPlace(const BusPull& pull, const AudioView& planes,
                                ConstAudioView& found) noexcept {
    const Given given = take(pull, planes.frames());
    if (!find(given, planes.frames(), found)) {
        convert(given, planes);
        found = planes;
    }
    return given.status;
}

bool BusReader::find(const Given& given, UInt32 frames, ConstAudioView& found) const noexcept {
    const PCMFormat& format = memory_.format();
    if (format.type != SampleType::float32 || format.interleaved ||
        format.bigEndian != (std::endian::native == std::endian::big) ||
        format.channels != channels_ || given.held != frames ||
        given.list.mNumberBuffers < channels_) {
        return false;
    }
    // A program may have put in memory of its own, at any address. Two planes are always evenly
    // spaced; more may not be.
    const AudioBuffer* const buffers = buffersOf(given.list);
    const auto addressOf = [&](UInt32 channel) {
        return reinterpret_cast<std::uintptr_t>(buffers[channel].mData);
    };
    const std::uintptr_t apart = channels_ > 1 ? addressOf(1) - addressOf(0) : 0;
    for (UInt32 channel = 0; channel < channels_; ++channel) {
        const std::uintptr_t address = addressOf(channel);
        if (address == 0 || address % alignof(float) != 0 ||
            address != addressOf(0) + channel * apart) {
            return false;
        }
    }
    const auto stride = static_cast<std::ptrdiff_t>(apart) / std::ptrdiff_t{sizeof(float)};
    found = {static_cast<const float*>(buffers[0].mData), channels_, frames, stride};
    return true;
}

bool BusReader::fits(const PCMFormat& format, UInt32 channels, UInt32 maximumFrames,
                     const ChannelFold& fold) const noexcept {
    return sameFormat(memory_.format(), format) && channels_ == channels &&
           maximumFrames_ == maximumFrames && fold_ == fold;
}

}  // namespace tqplatform
