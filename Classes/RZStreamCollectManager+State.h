#pragma once

#include <event_filter.h>

#include "RZReplayAudioRecorder.h"
#include "RZStreamCollectManager.h"

struct RZStreamCollectManager::State {
    std::vector<Listener> arrAudioListener;
    std::weak_ptr<RZReplayAudioRecorderDelegate> lastStopAudioListener;
    std::shared_ptr<RZReplayAudioRecorder> audioRecorder = RZReplayAudioRecorder::create();
    std::shared_ptr<NSRecursiveLock> lock = std::make_shared<NSRecursiveLock>();
    /// Changes of the list so far, to notice one in the middle of a pass.
    std::uint64_t mutations = 0;
    /// A listener that goes wrong on every block is named once in a while.
    korva_audio_utils::EventFilter faultFilter;
};
