#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <vector>

#include "common/AudioView.h"
#include "common/RealTime.h"

namespace tqplatform {

/// For each channel of one side the channel of the other that it gets, below 0 for silence. Empty
/// where nothing is mapped: the usual way of mapChannels() holds then.
using ChannelMap = std::vector<SInt32>;

/// [any thread] [real-time safe] Copies planes by the map; channels it leaves out, and those that
/// the source does not have, are silent. Planes are not the same on both sides.
void mapChannels(const tqcommon::ConstAudioView& source, const ChannelMap& map,
                 const tqcommon::AudioView& destination) noexcept TQ_NONBLOCKING;

/// The map that says what happens where none is set.
[[nodiscard]] ChannelMap usualMap(UInt32 sourceChannels, UInt32 destinationChannels);

}  // namespace tqplatform
