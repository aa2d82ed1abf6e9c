#include "format/ChannelMap.h"

#include <algorithm>

namespace tqplatform {

void mapChannels(const tqcommon::ConstAudioView& source, const ChannelMap& map,
                 const tqcommon::AudioView& destination) noexcept TQ_NONBLOCKING {
    for (UInt32 channel = 0; channel < destination.channels(); ++channel) {
        const SInt32 from = channel < map.size() ? map[channel] : -1;
        float* const plane = destination.plane(channel);
        if (from >= 0 && static_cast<UInt32>(from) < source.channels()) {
            std::copy_n(source.plane(static_cast<UInt32>(from)), destination.frames(), plane);
        } else {
            std::fill_n(plane, destination.frames(), 0.0F);
        }
    }
}

ChannelMap usualMap(UInt32 sourceChannels, UInt32 destinationChannels) {
    ChannelMap map(destinationChannels, -1);
    for (UInt32 channel = 0; channel < destinationChannels; ++channel) {
        if (sourceChannels == 1) {
            map[channel] = 0;
        } else if (channel < sourceChannels) {
            map[channel] = static_cast<SInt32>(channel);
        }
    }
    return map;
}

}  // namespace tqplatform
