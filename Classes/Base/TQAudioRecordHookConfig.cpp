#include "TQAudioRecordHookConfig.h"

#include <audio_hook_config.h>

#include "TQHookConfigResult.h"
#include "common/Threads.h"

using korva_audio_utils::AudioHookConfig;

TQAudioRecordHookConfig& TQAudioRecordHookConfig::shared() {
    static auto* const instance = new TQAudioRecordHookConfig;
    return *instance;
}

int TQAudioRecordHookConfig::enableHook(unsigned int hookId, BOOL enable) {
    tqcommon::assertHostThread();
    return publicHookConfigResult(AudioHookConfig::getInstance()->enableHook(hookId, enable));
}

BOOL TQAudioRecordHookConfig::isHookEnable() {
    return AudioHookConfig::getInstance()->isHookEnable();
}

int TQAudioRecordHookConfig::forceDisableHook(unsigned int hookId, BOOL disable) {
    tqcommon::assertHostThread();
    return publicHookConfigResult(
        AudioHookConfig::getInstance()->forceDisableHook(hookId, disable));
}

std::shared_ptr<TQAudioRecordPreLaunchState> TQAudioRecordHookConfig::getPreLaunchState() {
    const auto stored = AudioHookConfig::getInstance()->getPreLaunchState();
    auto state = std::make_shared<TQAudioRecordPreLaunchState>();
    state->setPreEnterCount(stored.enterCount);
    state->setCurrentRetryCount(stored.retryCount);
    return state;
}
