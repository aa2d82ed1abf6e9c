#include "MixRenderCallbacks.h"

#include "RZBoundary.h"
#include "RZBufferList.h"
#include "RZStreamMixManager+Report.h"
#include "TQAudioRecordLock.h"
#include "common/Threads.h"

namespace {

bool isSuccessfulPostRender(const AudioUnitRenderActionFlags* flags) {
    constexpr UInt32 kMask =
        kAudioUnitRenderAction_PostRender | kAudioUnitRenderAction_PostRenderError;
    return flags != nullptr && (*flags & kMask) == kAudioUnitRenderAction_PostRender;
}

void recordRenderedBlock(RZReplayAudioUnitObject& obj, UInt32 frames, AudioBufferList* ioData) {
    if (obj.takenByCallback()) {
        obj.setTakenByCallback(NO);
        return;
    }
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
    const bool capturing = obj.isStarted() && obj.isCapturing() && manager.isCapturing();
    const bool processing = manager.isDuckingEnable() || manager.isCompressorEnable();
    if (!capturing && !processing) {
        obj.countIdle(frames);
        return;
    }
    const auto callback = manager.callback();
    const auto mask = static_cast<UInt32>(callback ? callback->getPCMDataType() : 0);
    obj.account().rendered(frames, {capturing, (mask & RZPCMDataTypePre) != 0},
                           {capturing, (mask & RZPCMDataTypePost) != 0});
    if (capturing && (mask & RZPCMDataTypePre) != 0) {
        obj.tryWriteBuffersFrom(ioData, frames, NO);
    }
    if (processing) {
        obj.processBuffer(ioData, frames);
    }
    if (capturing && (mask & RZPCMDataTypePost) != 0) {
        obj.tryWriteBuffersFrom(ioData, frames, YES);
    }
}

}  // namespace

OSStatus MixOutputRenderCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                                 const AudioTimeStamp* ts, UInt32 /*bus*/, UInt32 /*frames*/,
                                 AudioBufferList* ioData) {
    constexpr RZLogSite site(kMixManagerFile, "MixOutputRenderCallback");
    if (!isSuccessfulPostRender(flags) || ioData == nullptr) {
        return 0;
    }
    const tqcommon::RenderThreadScope renderThread;
    auto& manager = *static_cast<RZStreamMixManager*>(refCon);
    const TQAudioRecordLock guard(manager.auGraphUpdateLock());
    RZRoadGuarded(site, [&] {
        const auto callback = manager.callback();
        const auto info = manager.outInfo();
        if (callback && info && manager.isCapturing()) {
            info->setTimeStamp(ts == nullptr ? 0 : manager.microsecondsOfHostTime(ts->mHostTime));
            callback->onAudioReceivePrePCM(ioData, *info);
        }
    });
    fillSilence(*ioData);
    return 0;
}

OSStatus RenderNotifyCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                              const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 frames,
                              AudioBufferList* ioData) {
    constexpr RZLogSite site(kMixManagerFile, "RenderNotifyCallback");
    const bool isBeginning = flags != nullptr && (*flags & kAudioUnitRenderAction_PreRender) != 0;
    if (!isBeginning && !isSuccessfulPostRender(flags)) {
        return 0;
    }
    const tqcommon::RenderThreadScope renderThread;
    const auto obj = RZStreamMixManager::sharedManager()->findAudioUnitObj(refCon);
    if (!obj) {
        return 0;
    }
    if (isBeginning) {
        obj->noteRenderBegins();
        obj->noteGivenMemory(ioData);
    } else {
        RZRoadGuarded(site, [&] { recordRenderedBlock(*obj, frames, ioData); });
    }
    return 0;
}
