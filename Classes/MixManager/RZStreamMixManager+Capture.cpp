#include <AVFoundation/AVFoundation.h>

#include <algorithm>

#include "RZOperationLock.h"
#include "RZStreamMixManager+Report.h"
#include "TQAudioRecordLock.h"
#include "TQAudioUnitRecordResolveManager.h"
#include "TQHookSelfTest.h"
#include "common/Threads.h"

// The capture switch, what the system's notices do to it, and the settings of ducking and
// compression.

namespace {
constexpr std::int32_t kHookNotWorking = 103;
}

BOOL RZStreamMixManager::startCapture() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager startCapture]");
    tqcommon::assertHostThread();
    const RZOperationLock guard(operatorLock_);
    site.log(2, "[mix] start capture, isCurrentInterrupting: %d, isCapturing: %d",
             isCurrentInterrupting(), isCapturing());
    const std::uint32_t ends = interruptionEnds_;
    if (isCurrentInterrupting()) {
        setIsPendingStartCapturing(YES);
        // An end that came meanwhile has seen nothing pending: nobody else would start.
        if (interruptionEnds_ == ends) {
            return YES;
        }
    }
    setIsPendingStartCapturing(NO);
    if (isCapturing()) {
        return YES;
    }
    if (lastStopError()) {
        report(site, 4, TQ_EVENT_CAPTURE_START, TQ_EVENT_STOP_FAILED, "[mix] has stop error");
        return NO;
    }
    setIsCapturing(YES);
    if (!initResampleUnit()) {
        setIsCapturing(NO);
        report(site, 4, TQ_EVENT_CAPTURE_START, TQ_EVENT_GRAPH_REFUSED,
               "[mix] resample init failed");
        return NO;
    }
    if (!TQHookSelfTest::isHookSuccess()) {
        setIsCapturing(NO);
        report(site, 4, TQ_EVENT_CAPTURE_START, TQ_EVENT_HOOKS_NOT_WORKING,
               "[mix] start capture with hook failed");
        return NO;
    }
    updateAudioUnitObjASBD();
    if (!startResampleUnit()) {
        setIsCapturing(NO);
        report(site, 4, TQ_EVENT_CAPTURE_START, TQ_EVENT_GRAPH_REFUSED,
               "[mix] resample unit start fail");
        return NO;
    }
    std::string summary = "[";
    for (const UnitObject& obj : getUnitObjListWithCopy()) {
        summary += RZFormat("{key: %p, unit: %p, capture: %d, starte: %d},", obj->inUnit(),
                            obj->inUnit(), obj->isCapturing(), obj->isStarted());
    }
    summary += "]";
    report(site, 2, TQ_EVENT_CAPTURE_START, TQ_EVENT_DONE, summary.c_str());
    return YES;
}

BOOL RZStreamMixManager::stopCapture() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager stopCapture]");
    tqcommon::assertHostThread();
    const RZOperationLock guard(operatorLock_);
    site.log(2, "[mix]stop capture");
    setIsPendingStartCapturing(NO);
    if (!isCapturing()) {
        return YES;
    }
    setIsCapturing(NO);
    if (!stopResampleMix()) {
        report(site, 1, TQ_EVENT_CAPTURE_STOP, TQ_EVENT_STOP_FAILED, "[mix] resample stop failed");
        setLastStopError(YES);
    }
    if (!unInitializeResampleUnit()) {
        report(site, 1, TQ_EVENT_CAPTURE_STOP, TQ_EVENT_STOP_FAILED,
               "[mix] resample uninitialize failed");
        setLastStopError(YES);
    }
    return YES;
}

dispatch_queue_t RZStreamMixManager::getAsyncQueue() {
    const TQAudioRecordLock guard(auGraphUpdateLock_);
    if (!queue()) {
        setQueue(dispatch_queue_create("TQAudioRecordMixManager", nullptr));
    }
    return queue();
}

void RZStreamMixManager::onAudioUnitNewRegistered(const NSNotification& notification) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager onAudioUnitNewRegistered:]");
    const std::string key = notification.textForKey(TQAudioNewRegisteredObject);
    if (key.empty()) {
        site.log(4, "[mix]Error to get new registered audio unit");
        return;
    }
    const UnitObject obj = getAudioUnitObjWithKey(key);
    if (obj && obj->isCapturing()) {
        site.log(2, "[mix]Force stop audio unit:%@ resample, trackid:%d", key, obj->trackId());
        audioUnitStop(obj);
    }
}

void RZStreamMixManager::onAuGraphNewRegistered(const NSNotification& notification) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager onAuGraphNewRegistered:]");
    const std::string key = notification.textForKey(TQAudioNewRegisteredObject);
    if (key.empty()) {
        site.log(4, "[mix]Error to get new registered audio unit");
        return;
    }
    for (const UnitObject& obj : getUnitObjListWithCopy()) {
        if (getKey(obj->auGraph()) != key) {
            continue;
        }
        if (obj->isCapturing()) {
            site.log(2, "[mix]Force stop audio unit:%@ resample, trackid:%d", key, obj->trackId());
            audioUnitStop(obj);
        }
        return;
    }
}

void RZStreamMixManager::onAudioSessionRouteChanged(const NSNotification& /*notification*/) {
    const auto units = getUnitObjListWithCopy();
    // A taken-over callback sees the application's side, which a new route does not change.
    const bool isNotifyCaptured =
        std::any_of(units.begin(), units.end(), [](const UnitObject& obj) {
            return obj->isCapturing() && obj->origin_inputProc() == nullptr;
        });
    if (isNotifyCaptured) {
        updateCapturingAudioUnitObjFormatToResampler();
    }
}

void RZStreamMixManager::onAudioInterruption(const NSNotification& notification) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager onAudioInterruption:]");
    // A notification without a type reads 0, which is the end of an interruption.
    switch (notification.integerForKey(AVAudioSessionInterruptionTypeKey, 0)) {
        case AVAudioSessionInterruptionTypeBegan:
            setIsCurrentInterrupting(YES);
            site.log(3, "[mix] Interruption beging");
            // On the queue: stopping a graph must not hold up the notifying thread.
            dispatch_async(getAsyncQueue(), [this, ends = interruptionEnds_.load()] {
                const RZOperationLock guard(operatorLock_);
                if (isCapturing()) {
                    stopCapture();
                    // Set after the stop, because a stop clears it.
                    setIsPendingStartCapturing(YES);
                    // An end that came before has seen nothing pending. The restart is made here
                    // then; an end that comes now finds it pending or done.
                    if (interruptionEnds_ != ends) {
                        startCapture();
                    }
                }
            });
            break;
        case AVAudioSessionInterruptionTypeEnded:
            setIsCurrentInterrupting(NO);
            ++interruptionEnds_;
            site.log(3, "[mix] Interruption end");
            if (isPendingStartCapturing()) {
                dispatch_async(getAsyncQueue(), [this] {
                    const RZOperationLock guard(operatorLock_);
                    if (isPendingStartCapturing()) {
                        startCapture();
                    }
                    const TQAudioRecordLock queueGuard(auGraphUpdateLock_);
                    setQueue(nullptr);
                });
            }
            break;
        default:
            break;
    }
}

void RZStreamMixManager::onDidEnterBackground() {
    setIsCurrentInterrupting(NO);
}

std::int32_t RZStreamMixManager::enableDucking(const RZReplayVolumeDuckingParam* param) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager enableDucking:]");
    site.log(2, "[mix] enable ducking: %d", param != nullptr && param->enable());
    if (!TQHookSelfTest::isHookSuccess()) {
        return kHookNotWorking;
    }
    const RZOperationLock guard(operatorLock_);
    setDuckingParam(param == nullptr ? nullptr : param->copy());
    if (!isDuckingEnable()) {
        duckingLevel_.reset();
    }
    for (const UnitObject& obj : objsWithLevels()) {
        obj->setDuckingParam(param);
    }
    return 0;
}

std::int32_t RZStreamMixManager::enableCompressor(const RZReplayVolumeCompressorParam* param) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager enableCompressor:]");
    site.log(2, "[mix] enable compressor: %d", param != nullptr && param->enable());
    if (!TQHookSelfTest::isHookSuccess()) {
        return kHookNotWorking;
    }
    const RZOperationLock guard(operatorLock_);
    setCompressParam(param == nullptr ? nullptr : param->copy());
    if (!isCompressorEnable()) {
        compressorLevel_.reset();
    }
    for (const UnitObject& obj : objsWithLevels()) {
        obj->setCompressorParam(param);
    }
    return 0;
}

BOOL RZStreamMixManager::isDuckingEnable() const {
    return duckingParam_.with([](const auto& param) { return param && param->enable(); });
}

BOOL RZStreamMixManager::isCompressorEnable() const {
    return compressParam_.with([](const auto& param) { return param && param->enable(); });
}

std::int32_t RZStreamMixManager::updateDuckingVolume(float volume, BOOL isDB) {
    const RZOperationLock guard(operatorLock_);
    duckingLevel_ = Level{volume, isDB};
    for (const UnitObject& obj : objsWithLevels()) {
        obj->updateDuckingVolume(volume, isDB);
    }
    return 0;
}

std::int32_t RZStreamMixManager::updateCompressorVolume(float volume, BOOL isDB) {
    const RZOperationLock guard(operatorLock_);
    compressorLevel_ = Level{volume, isDB};
    for (const UnitObject& obj : objsWithLevels()) {
        obj->updateCompressorVolume(volume, isDB);
    }
    return 0;
}

void RZStreamMixManager::addUnitless(const UnitObject& obj) {
    const RZOperationLock guard(operatorLock_);
    std::erase_if(unitless_, [](const auto& other) { return other.expired(); });
    unitless_.push_back(obj);
    giveLevels(obj);
}

std::vector<RZStreamMixManager::UnitObject> RZStreamMixManager::objsWithLevels() {
    std::vector<UnitObject> objs = getUnitObjListWithCopy();
    for (const auto& other : unitless_) {
        if (UnitObject obj = other.lock()) {
            objs.push_back(std::move(obj));
        }
    }
    return objs;
}

void RZStreamMixManager::giveLevels(const UnitObject& obj) {
    const RZOperationLock guard(operatorLock_);
    (void)obj->getOrCreateBufferAt(0);
    obj->setDuckingParam(duckingParam().get());
    obj->setCompressorParam(compressParam().get());
    if (duckingLevel_) {
        obj->updateDuckingVolume(duckingLevel_->volume, duckingLevel_->isDB);
    }
    if (compressorLevel_) {
        obj->updateCompressorVolume(compressorLevel_->volume, compressorLevel_->isDB);
    }
}
