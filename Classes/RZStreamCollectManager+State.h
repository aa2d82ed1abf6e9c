#pragma once

#include <event_filter.h>

#include "RZReplayAudioRecorder.h"
#include "RZStreamCollectManager.h"
#include "common/ForkLocks.h"

struct RZStreamCollectManager::State {
    std::vector<Listener> arrAudioListener;
    std::weak_ptr<RZReplayAudioRecorderDelegate> lastStopAudioListener;
    std::shared_ptr<RZReplayAudioRecorder> audioRecorder = RZReplayAudioRecorder::create();
    std::shared_ptr<NSRecursiveLock> lock = std::make_shared<NSRecursiveLock>();
    tqcommon::ForkLock atFork{tqcommon::ForkOrder::Listeners, *lock};
    /// Counts changes of the list, so that a delivery notices one made by a listener it called.
    std::uint64_t mutations = 0;
    /// Limits how often a listener that fails on every block is named in the log.
    korva_audio_utils::EventFilter faultFilter;
};
