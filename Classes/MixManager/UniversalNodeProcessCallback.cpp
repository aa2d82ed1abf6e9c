#include "UniversalNodeProcessCallback.h"

#include <audio_stats.h>

#include "RZBufferList.h"
#include "RZStreamMixManager.h"
#include "TQAudioRecordLock.h"

OSStatus UniversalNodeProcessCallback(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                                      const AudioTimeStamp* ts, UInt32 /*bus*/, UInt32 frames,
                                      AudioBufferList* ioData) {
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
    const TQAudioRecordLock guard(manager.auGraphUpdateLock());
    const auto obj = manager.findAudioUnitObj(refCon);
    if (!obj || ioData == nullptr) {
        return 0;
    }
    const int trackId = obj->trackId();
    const auto callback = manager.callback();
    const auto type = static_cast<UInt32>(callback ? callback->getPCMDataType() : 0);
    std::size_t postAvail = 0;
    std::size_t preAvail = 0;

    const bool capturing = manager.isCapturing() && obj->isCapturing();
    if (capturing) {
        obj->updateAsbdInfo();
        if ((type & RZPCMDataTypePost) != 0) {
            postAvail = obj->getRingBufferSize(YES);
            const auto info = obj->asbdInfo();
            info->setTimeStamp(ts == nullptr ? 0 : manager.microsecondsOfHostTime(ts->mHostTime));
            // Everything that has piled up, block by block, until a block is not complete.
            while (obj->tryReadBuffersTo(ioData, frames, YES)) {
                if (callback && manager.isCapturing()) {
                    callback->onAudioReceivePostPCM(ioData, *info);
                }
            }
        }
    }
    fillSilence(*ioData);
    if (capturing && (type & RZPCMDataTypePre) != 0) {
        preAvail = obj->getRingBufferSize(NO);
        obj->tryReadBuffersTo(ioData, frames, NO);
    }
    const auto id = static_cast<unsigned long>(trackId);
    korva_audio_utils::KorvaAudioStats::HookAudioTrackStat stat{};
    stat.audio_track_id = id;
    stat.pre_buffer_size = static_cast<std::uint16_t>(preAvail);
    stat.post_buffer_size = static_cast<std::uint16_t>(postAvail);
    korva_audio_utils::KorvaAudioStats::getInstance()->updateHookAudioTrackStats(id, stat);
    return 0;
}
