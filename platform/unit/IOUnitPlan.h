#pragma once

#include "unit/IOUnit.h"

namespace tqplatform {

/// What the device's thread knows of an output unit.
struct IOUnit::Plan : RenderPlan {
    Hardware hardware;
    bool outputEnabled = true;
    bool inputEnabled = false;
    InputSource source;
    bool allocate = true;
    std::shared_ptr<ConvertedInput> input;       ///< from the program to the device
    ChannelMap channelMap;                       ///< from the program's channels to the device's
    std::shared_ptr<tqcommon::Planes> unmapped;  ///< the program's channels; null without a map
    std::shared_ptr<BusMemory> deviceList;  ///< for its list only: the notifies' view of a slice
    std::shared_ptr<MicrophonePath> microphone;
    AURenderCallbackStruct inputCallback{};
};

}  // namespace tqplatform
