#pragma once

/// Everything that hosts and their recording code use.

#include "RZAudioRecordStat.h"
#include "RZReplayASBDInfo.h"
#include "RZReplayAudioRecorder.h"
#include "RZReplayAudioRecorderDelegate.h"
#include "RZReplayVolumeCompressorParam.h"
#include "RZReplayVolumeController.h"
#include "RZReplayVolumeDuckingParam.h"
#include "RZStreamCollectManager.h"
#include "TQAudioRecordHookConfig.h"
#include "TQAudioRecordLog.h"
#include "TQAudioRecordVersion.h"
#include "tq_events.h"
