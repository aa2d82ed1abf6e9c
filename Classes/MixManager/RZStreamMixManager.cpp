#include "RZStreamMixManager.h"

#include <AVFoundation/AVFoundation.h>
#include <TQPlatform/DevicePause.h>
#include <UIKit/UIKit.h>
#include <audio_stats.h>

#include <algorithm>
#include <mutex>

#include "RZNumbers.h"
#include "RZOperationLock.h"
#include "RZStreamFormat.h"
#include "RZStreamMixManager+Report.h"
#include "RZUnitFormatChange.h"
#include "TQAudioRecordLock.h"
#include "TQAudioUnitRecordResolveManager.h"
#include "UniversalNodeProcessCallback.h"

// The singleton and the life of one unit. The registry, the private graph and the capture switch
// are in the files beside this one.

namespace {

constexpr long kEventIntervalMilliseconds = 2000;

/// How the statistics name the kind of source.
int hookType(const RZReplayAudioUnitObject* obj) {
    if (obj == nullptr || obj->auGraph() == nullptr) {
        return TQ_HOOK_TRACK_UNIT;
    }
    return obj->origin_inputProc() != nullptr ? TQ_HOOK_TRACK_GRAPH_CALLBACK : TQ_HOOK_TRACK_GRAPH;
}

}  // namespace

const std::shared_ptr<RZStreamMixManager>& RZStreamMixManager::sharedManager() {
    static const auto& instance = *new std::shared_ptr<RZStreamMixManager>(new RZStreamMixManager);
    return instance;
}

RZStreamMixManager::RZStreamMixManager()
    : operatorLock_(std::make_shared<NSRecursiveLock>()),
      auGraphUpdateLock_(std::make_shared<NSRecursiveLock>()),
      mapLock_(std::make_shared<NSRecursiveLock>()) {
    operatorLock_->setName("operatorLock");
    auGraphUpdateLock_->setName("auGraphUpdateLock");
    mapLock_->setName("mapLock");
    static constexpr tqcommon::ForkLock::Pause kPause{
        [](std::uint64_t nanoseconds) { return TQPauseDevice(nanoseconds) != 0; }, TQResumeDevice};
    tqcommon::ForkLock::setPause(kPause);
    operatorLock_->isTakenBefore(*mapLock_);
    operatorLock_->isTakenBefore(*auGraphUpdateLock_);
    mach_timebase_info_data_t timeBase{};
    mach_timebase_info(&timeBase);
    timeBaseInfo_.store(timeBase);
    eventFilter_ = std::make_unique<korva_audio_utils::EventFilter>();
    eventFilter_->SetInterval(kEventIntervalMilliseconds);
    observeNotifications();
}

void RZStreamMixManager::beginAsChild() {
    const auto letGo = [](const UnitObject& obj) {
        obj->stopAudioUnit();
        obj->discardWaiting(NO, RZFrameLoss::LeftAtStop);
        obj->discardWaiting(YES, RZFrameLoss::LeftAtStop);
    };
    for (const Entry& entry : unitMap_) {
        letGo(entry.obj);
    }
    for (const UnitObject& obj : tails_.takeAll()) {
        letGo(obj);
    }
    RZUnitFacts::shared().allStopped();
    // Its device is its own, and nobody will tell it of the end of what has befallen the parent's.
    setIsCurrentInterrupting(NO);
}

/// Never taken back: the manager lives as long as the process.
void RZStreamMixManager::observeNotifications() {
    NSNotificationCenter& center = NSNotificationCenter::defaultCenter();
    center.addObserver(
        this, [this](const NSNotification& n) { onAudioUnitNewRegistered(n); },
        TQAudioNewRegisterAudioUnitNotification, nullptr);
    center.addObserver(
        this, [this](const NSNotification& n) { onAuGraphNewRegistered(n); },
        TQAudioNewRegisterAuGraphNotification, nullptr);
    center.addObserver(
        this, [this](const NSNotification& n) { onAudioSessionRouteChanged(n); },
        AVAudioSessionRouteChangeNotification, nullptr);
    center.addObserver(
        this, [this](const NSNotification& n) { onAudioInterruption(n); },
        AVAudioSessionInterruptionNotification, nullptr);
    center.addObserver(
        this, [this](const NSNotification&) { onDidEnterBackground(); },
        UIApplicationDidEnterBackgroundNotification, nullptr);
}

std::uint64_t RZStreamMixManager::microsecondsOfHostTime(std::uint64_t hostTime) const {
    const mach_timebase_info_data_t timeBase = timeBaseInfo();
    return timeBase.denom == 0 ? 0 : hostTime * timeBase.numer / timeBase.denom / 1000;
}

BOOL RZStreamMixManager::isUnitObjCanStartCapture(const UnitObject& obj) const {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager isUnitObjCanStartCapture:]");
    const AudioUnit unit = obj ? obj->inUnit() : nullptr;
    if (TQAudioUnitRecordResolveManager::sharedManager().existAudioUnit(unit)) {
        site.log(4, "the exist audio unit:%p", unit);
        return NO;
    }
    if (obj && obj->isStarted() && !obj->isCapturing()) {
        if (obj->input_enableIO()) {
            site.log(4, "[korva]this audiounit is rtc seamd. input_enableIO:%d, audio unit:%p",
                     obj->input_enableIO(), unit);
            return NO;
        }
        if (obj->isExcluded()) {
            return NO;
        }
        if (obj->isAvailable()) {
            return YES;
        }
        site.log(4, "data not available: %p", unit);
        return NO;
    }
    site.log(4, "status isStarted:%d, isCapture:%d", obj && obj->isStarted(),
             obj && obj->isCapturing());
    return NO;
}

void RZStreamMixManager::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                            const std::string& message) {
    const auto receiver = callback();
    if (receiver && receiver->respondsTo(Method::onAudioRecordEvent)) {
        receiver->onAudioRecordEvent(category, code, message);
    }
}

void RZStreamMixManager::recordTrackStatistics(const UnitObject& obj) {
    const AudioStreamBasicDescription desc =
        obj ? obj->streamDesc() : AudioStreamBasicDescription{};
    korva_audio_utils::KorvaAudioStats::HookAudioTrackInfo info{};
    info.audio_track_id = static_cast<std::uint64_t>(obj ? obj->trackId() : 0);
    // The flags, not the format id: that is what the field of this name means to its readers.
    info.audio_format = desc.mFormatFlags;
    info.buffersize = desc.mBytesPerPacket;
    info.track_type = hookType(obj.get());
    info.sample_rate = truncateToInt32(desc.mSampleRate);
    info.channel = static_cast<std::int32_t>(desc.mChannelsPerFrame);
    korva_audio_utils::KorvaAudioStats::getInstance()->addHookAudioTrackInfo(info.audio_track_id,
                                                                             info);
}

OSStatus RZStreamMixManager::setNodeInputCallback(const UnitObject& obj) {
    const AURenderCallbackStruct input{UniversalNodeProcessCallback, obj->inUnit()};
    const OSStatus status = AUGraphSetNodeInputCallback(
        mGraph(), mixNode(), static_cast<UInt32>(obj->trackId()), &input);
    if (status == 0) {
        takeBus(obj);
    }
    return status;
}

void RZStreamMixManager::audioUnitStart(const UnitObject& obj) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager audioUnitStart:]");
    const RZOperationLock guard(operatorLock_);
    resumeTail(obj);
    inspectAtStart(obj);
    recordTrackStatistics(obj);
    // Before its first block can be captured: the block bears the unit's name.
    if (obj) {
        const auto named = RZUnitFacts::shared().started(obj->inUnit(), obj->auGraph(),
                                                         obj->trackId(), reasonAtStart(obj));
        obj->setUnitWord(named.word());
        obj->setExcluded(RZUnitFacts::shared().isExcluded(obj->inUnit()));
    }
    report(site, 2, TQ_EVENT_UNIT_START, TQ_EVENT_DONE, "audio unit start: %d",
           obj ? obj->trackId() : 0);
    if (!isUnitObjCanStartCapture(obj) || !isCapturing()) {
        return;
    }
    // Checked again: a notification thread may have changed the answer meanwhile.
    if (!isUnitObjCanStartCapture(obj) || !isCapturing()) {
        return;
    }
    obj->startCapture();
    const AudioUnit unit = obj->inUnit();
    if (setNodeInputCallback(obj) != 0) {
        RZUnitFacts::shared().mixRefused(unit);
        report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED,
               "[mix] resample set input streamFormat fail, key: %p, trackId: %d", unit,
               obj->trackId());
        return;
    }
    if (updateResampleAudioFormat(obj, mixUnit()) != 0) {
        RZUnitFacts::shared().mixRefused(unit);
        report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED,
               "[mix] resample set mix unit stream format fail, key: %@, trackId: %d", getKey(unit),
               obj->trackId());
        return;
    }
    if (!updateAUGraph()) {
        RZUnitFacts::shared().mixRefused(unit);
        return;
    }
    report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_DONE,
           "[mix] resample update(au start) success, key: %p, trackid: %d", unit, obj->trackId());
}

/// A unit that has stood still may start in another format: what its rings hold in the old one
/// would shift every channel of the new one.
void RZStreamMixManager::inspectAtStart(const UnitObject& obj) {
    if (!obj || obj->isStarted()) {
        updateAudioUnitObjectWithStart(obj);
        return;
    }
    const RZUnitFormatChange change(obj);
    updateAudioUnitObjectWithStart(obj);
    obj->keepOnlyBlocksOf(obj->streamDesc());
}

/// Unit, mixer bus and rings in the format that the unit has now. What the rings hold in another
/// one goes. The mixer's answer; nothing for a unit that is not captured.
std::optional<OSStatus> RZStreamMixManager::followFormat(const UnitObject& obj) {
    // Open only where the format is another one: a program may update its graph with every frame
    // that it draws, and a change that is open costs the block that is being rendered.
    std::optional<RZUnitFormatChange> change;
    if (obj->isStarted()) {
        updateAudioUnitObjectWithStart(obj, &change);
    }
    if (!obj->isCapturing()) {
        return std::nullopt;
    }
    const OSStatus status = updateResampleAudioFormat(obj, mixUnit());
    obj->keepOnlyBlocksOf(obj->streamDesc());
    return status;
}

void RZStreamMixManager::audioUnitUpdate(const UnitObject& obj) {
    updateUnit(obj, YES);
}

void RZStreamMixManager::audioUnitFormatChanged(const UnitObject& obj) {
    // A graph tells of it with its update.
    updateUnit(obj, obj && obj->auGraph() == nullptr);
}

void RZStreamMixManager::audioUnitSourceChanged(const UnitObject& obj, BOOL isRecorded) {
    if (obj && obj->isStarted()) {
        updateUnit(obj, isRecorded);
    }
}

void RZStreamMixManager::updateUnit(const UnitObject& obj, BOOL tellsSuccess) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager audioUnitUpdate:]");
    if (!obj) {
        return;
    }
    const RZOperationLock guard(operatorLock_);
    const std::optional<OSStatus> status = followFormat(obj);
    if (!status) {
        return;
    }
    if (*status != 0) {
        report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED,
               "[mix] resample set input streamFormat fail, key: %p trackId: %d", obj->inUnit(),
               obj->trackId());
    } else if (tellsSuccess) {
        report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_DONE,
               "[mix] resample set input streamFormat success, key: %p trackId: %d", obj->inUnit(),
               obj->trackId());
    }
}

void RZStreamMixManager::audioUnitStop(const UnitObject& obj) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager audioUnitStop:]");
    if (!obj) {
        return;
    }
    const RZOperationLock guard(operatorLock_);
    if (!isCapturing() || !obj->isCapturing()) {
        leaveBus(obj);
        obj->stopAudioUnit();
        RZUnitFacts::shared().stopped(obj->inUnit());
        return;
    }
    // A bus that a later unit of the same number has taken stays that unit's.
    if (!isBusAnothers(obj) &&
        AUGraphDisconnectNodeInput(mGraph(), mixNode(), static_cast<UInt32>(obj->trackId())) != 0) {
        report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED,
               "[mix] Audio resample update disconnect unitObj, key: %p, trackid: %d",
               obj->inUnit(), obj->trackId());
        return;
    }
    stopUnitAndKeepTail(obj, leaveBus(obj));
    RZUnitFacts::shared().stopped(obj->inUnit());
    if (updateAUGraph()) {
        report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_DONE,
               "[mix] resample update(au stop) success, key: %p trackId: %d", obj->inUnit(),
               obj->trackId());
    }
}

void RZStreamMixManager::disposeAudioUnitObj(const UnitObject& obj) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager disposeAudioUnitObj:]");
    const AudioUnit unit = obj ? obj->inUnit() : nullptr;
    const std::int32_t number = obj ? obj->trackId() : 0;
    const RZOperationLock guard(operatorLock_);
    audioUnitStop(obj);
    removeAudioUnitObjByKey(getKey(unit));
    // The mask is the number, not the track's bit: number 3 frees numbers 1 and 2 and stays taken.
    // Which numbers later units get follows from it. Who asked for it frees the bit alone.
    const bool isOwnOnly = releasesOwnNumberOnly() && number > 0;
    trackId_.fetch_and(~(isOwnOnly ? 1 << (number - 1) : number));
    korva_audio_utils::KorvaAudioStats::getInstance()->removeHookAudioTrack(
        static_cast<unsigned long>(number));
    site.log(2, "[mix] disposeAudioUnitObj: %p, %p", unit, unit);
    RZUnitFacts::shared().disposed(unit);
    TQAudioUnitRecordResolveManager::sharedManager().unregisterRTCUsedAudioUnit(unit);
}
