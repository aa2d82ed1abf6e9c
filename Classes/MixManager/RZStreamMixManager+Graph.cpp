#include <TQPlatform/HushedOutput.h>
#include <TQPlatform/RateConversion.h>

#include "MixRenderCallbacks.h"
#include "OSStatusText.h"
#include "RZOperationLock.h"
#include "RZStreamFormat.h"
#include "RZStreamMixManager+Report.h"
#include "RZUnitFormatChange.h"
#include "TQAudioRecordLock.h"
#include "TQAudioUnitRecordResolveManager.h"

// The private graph: one mixer, one output unit that plays silence, a mixer input bus for every
// captured track.

namespace {

constexpr AudioComponentDescription kMixerComponent{
    kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer, kAudioUnitManufacturer_Apple, 0, 0};
constexpr AudioComponentDescription kOutputComponent{
    kAudioUnitType_Output, kAudioUnitSubType_RemoteIO, kAudioUnitManufacturer_Apple, 0, 0};

/// What listeners get: 44100 Hz, 16-bit, stereo, interleaved. The packed flag is left out on
/// purpose.
constexpr AudioStreamBasicDescription kMixedFormat{
    44100.0, kAudioFormatLinearPCM, kAudioFormatFlagIsSignedInteger, 4, 1, 4, 2, 16, 0};

constexpr UInt32 kMaximumFramesPerSlice = 4096;

/// Two lines from one source line: what failed, and the status.
void logFailure(const RZLogSite& site, const RZLogFormat& message, OSStatus status) {
    site.log(4, message);
    const std::string text = CheckError(status);
    site.log(4, RZLogFormat(text.c_str(), message.line));
}

/// The same as a condition: true when `status` is a failure.
bool failed(const RZLogSite& site, OSStatus status, const RZLogFormat& message) {
    if (status == 0) {
        return false;
    }
    logFailure(site, message, status);
    return true;
}

/// The bus format for a unit's format: float becomes 16-bit integer of the same layout.
AudioStreamBasicDescription integerForm(AudioStreamBasicDescription desc) {
    desc.mBitsPerChannel /= 2;
    desc.mBytesPerPacket = desc.mBytesPerFrame / 2;
    desc.mBytesPerFrame /= 2;
    desc.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsFloat);
    desc.mFormatFlags |= kAudioFormatFlagIsSignedInteger;
    return desc;
}

OSStatus readStreamFormat(AudioUnit unit, AudioUnitScope scope, AudioStreamBasicDescription& desc) {
    UInt32 size = sizeof(desc);
    return AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, scope, 0, &desc, &size);
}

}  // namespace

void RZStreamMixManager::prepareConversions() {
    // Without them a start takes longer, that is all: what is refused here is not looked at.
    constexpr Float64 kUsualRates[] = {192000, 176400, 64000, 37800, 48000, 32000, 24000,
                                       22050,  16000,  11025, 12000, 8000,  96000, 88200};
    for (const Float64 rate : kUsualRates) {
        TQPrepareRateConversion(rate, kMixedFormat.mSampleRate, kMixedFormat.mChannelsPerFrame,
                                kMaximumFramesPerSlice);
    }
}

BOOL RZStreamMixManager::initResampleUnit() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager initResampleUnit]");
    if (isResamplerInit()) {
        return YES;
    }
    auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    AUGraph graph = nullptr;
    if (failed(site, NewAUGraph(&graph), "newAUGraph fail")) {
        return NO;
    }
    setMGraph(graph);
    resolver.registerNonGameUsedAuGraph(graph);

    AUNode mixer = 0;
    if (failed(site, AUGraphAddNode(graph, &kMixerComponent, &mixer), "AUGraphAddNode fail")) {
        return NO;
    }
    setMixNode(mixer);
    AUNode output = 0;
    if (failed(site, AUGraphAddNode(graph, &kOutputComponent, &output), "AUGraphAddNode fail")) {
        return NO;
    }
    setOutNode(output);
    if (failed(site, AUGraphConnectNodeInput(graph, mixer, 0, output, 0),
               "AUGraphConnectNodeInput fail")) {
        return NO;
    }
    if (failed(site, AUGraphOpen(graph), "AUGraphOpen fail")) {
        return NO;
    }

    AudioUnit mixerUnit = nullptr;
    if (failed(site, AUGraphNodeInfo(graph, mixer, nullptr, &mixerUnit), "AUGraphNodeInfo fail")) {
        return NO;
    }
    setMixUnit(mixerUnit);
    resolver.registerNonGameUsedAudioUnit(mixerUnit);
    AudioUnit outputUnit = nullptr;
    if (failed(site, AUGraphNodeInfo(graph, output, nullptr, &outputUnit),
               "AUGraphNodeInfo fail")) {
        return NO;
    }
    setOutUnit(outputUnit);
    // It takes the clock of whatever device the program plays on, and never opens one itself.
    TQHushOutputUnit(outputUnit);
    resolver.registerNonGameUsedAudioUnit(outputUnit);

    auto info = RZReplayASBDInfo::formatInfoWithDesc(kMixedFormat);
    info->setTrackId(1);
    info->setVolume(0.0);
    setOutInfo(std::move(info));
    if (failed(site,
               AudioUnitSetProperty(mixerUnit, kAudioUnitProperty_StreamFormat,
                                    kAudioUnitScope_Output, 0, &kMixedFormat, sizeof(kMixedFormat)),
               "mixunit set output streamFormat fail")) {
        return NO;
    }
    if (failed(site,
               AudioUnitSetProperty(mixerUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                    kAudioUnitScope_Global, 0, &kMaximumFramesPerSlice,
                                    sizeof(kMaximumFramesPerSlice)),
               "mixunit set MaximumFramesPerSlice fail")) {
        return NO;
    }
    if (failed(site, AudioUnitAddRenderNotify(mixerUnit, MixOutputRenderCallback, this),
               "mixunit add notify fail")) {
        return NO;
    }
    setIsResamplerInit(YES);
    return YES;
}

/// The device may have got another format while nobody recorded: in an interruption, say, in which
/// units play on.
void RZStreamMixManager::refreshDeviceSide(const UnitObject& obj) {
    AudioStreamBasicDescription fresh{};
    if (RZCapturedScope(*obj) == kAudioUnitScope_Output &&
        readStreamFormat(obj->inUnit(), kAudioUnitScope_Output, fresh) == 0 &&
        !RZIsSameFormat(fresh, obj->streamDesc())) {
        const RZUnitFormatChange change(obj);
        obj->setStreamDesc(fresh);
    }
}

/// One eligible object onto its mixer bus, before the graph runs.
BOOL RZStreamMixManager::connectUnitObj(const UnitObject& obj) {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager startResampleUnit]");
    site.log(2, "[mix] Audio resampler connect unitObj, trackid: %d", obj->trackId());
    if (failed(site, setNodeInputCallback(obj), "resample input connect origin outer input fail")) {
        site.log(4, "trackid:%d", obj->trackId());
        return NO;
    }
    refreshDeviceSide(obj);
    if (failed(site, updateResampleAudioFormat(obj, mixUnit()),
               "resample set input streamFormat fail")) {
        site.log(4, "trackid:%d", obj->trackId());
        return NO;
    }
    site.log(4, "audio unit start capture: %p", obj->inUnit());
    // What an earlier capture left would come out of place.
    obj->keepOnlyBlocksOf({}, RZFrameLoss::DiscardedAtStart);
    obj->keepOnlyBlocksOf(obj->streamDesc());
    obj->startCapture();
    RZUnitFacts::shared().mixTook(obj->inUnit());
    return YES;
}

BOOL RZStreamMixManager::startResampleUnit() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager startResampleUnit]");
    for (const UnitObject& obj : filterCanStartUnitObjList()) {
        if (!connectUnitObj(obj)) {
            return NO;
        }
    }
    // It is open already; asking again does no harm.
    if (failed(site, AUGraphOpen(mGraph()), "resample graph open fail")) {
        return NO;
    }
    if (failed(site, AUGraphInitialize(mGraph()), "resample graph initialize fail")) {
        return NO;
    }
    return !failed(site, AUGraphStart(mGraph()), "AUGraphStart fail");
}

BOOL RZStreamMixManager::stopResampleMix() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager stopResampleMix]");
    if (failed(site, AUGraphStop(mGraph()), "AUGraphStop fail")) {
        return NO;
    }
    std::vector<UnitObject> tails;  // let go behind the lock
    {
        const TQAudioRecordLock guard(auGraphUpdateLock_);
        tails = tails_.takeAll();
    }
    BOOL allDisconnected = YES;
    for (const UnitObject& obj : getUnitObjListWithCopy()) {
        if (!obj->isCapturing()) {
            continue;
        }
        const int track = obj->trackId();
        site.log(2, "[mix] Audio resampler update disconnect unitObj, trackid: %d", track);
        if (failed(site,
                   AUGraphDisconnectNodeInput(mGraph(), mixNode(), static_cast<UInt32>(track)),
                   "resample input disconnect fail")) {
            site.log(4, "[mix]Failed! Audio resampler update disconnect unitObj, trackid:%d",
                     track);
            allDisconnected = NO;
        }
        leaveBus(obj);
        obj->stopCapture();
    }
    return allDisconnected;
}

BOOL RZStreamMixManager::unInitializeResampleUnit() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager unInitializeResampleUnit]");
    if (!isResamplerInit()) {
        return YES;
    }
    setIsResamplerInit(NO);
    auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    resolver.unregisterNonGameUsedAuGraph(mGraph());
    resolver.unregisterNonGameUsedAudioUnit(mixUnit());
    resolver.unregisterNonGameUsedAudioUnit(outUnit());
    if (failed(site, AUGraphUninitialize(mGraph()), "AUGraphUninitialize fail")) {
        return NO;
    }
    if (failed(site, AUGraphClose(mGraph()), "AUGraphClose fail")) {
        return NO;
    }
    return !failed(site, DisposeAUGraph(mGraph()), "DisposeAUGraph fail");
}

OSStatus RZStreamMixManager::updateResampleAudioFormat(const UnitObject& obj, AudioUnit mixer) {
    AudioStreamBasicDescription desc{};
    UInt32 bus = 0;
    if (obj) {
        bus = static_cast<UInt32>(obj->trackId());
        desc = obj->streamDesc();
        // The mixer converts 64-bit float by itself.
        const bool isFloat =
            (desc.mFormatFlags & kAudioFormatFlagIsFloat) != 0 && desc.mBitsPerChannel == 32;
        if (isFloat) {
            desc = integerForm(desc);
            obj->setS16FormatStreamDesc(desc);
        }
        obj->setNeedFormatToS16(isFloat);
    }
    // Not with the lock held: the mixer waits for its slice, and the slice for the lock.
    {
        const TQAudioRecordLock guard(auGraphUpdateLock_);
        tails_.beginBusFormat(bus);
    }
    const OSStatus status = AudioUnitSetProperty(mixer, kAudioUnitProperty_StreamFormat,
                                                 kAudioUnitScope_Input, bus, &desc, sizeof(desc));
    if (status == 0 && obj) {
        giveBusLayout(*obj, mixer);
    }
    const TQAudioRecordLock guard(auGraphUpdateLock_);
    tails_.endBusFormat(bus, status == 0 ? &desc : nullptr);
    return status;
}

BOOL RZStreamMixManager::updateAudioUnitObjStreamFormat(const UnitObject& obj,
                                                        std::optional<RZUnitFormatChange>* change) {
    constexpr RZLogSite site(kMixManagerFile,
                             "-[RZStreamMixManager updateAudioUnitObjStreamFormat:]");
    const AudioUnitScope scope = obj ? RZCapturedScope(*obj) : kAudioUnitScope_Output;
    AudioStreamBasicDescription desc{};
    if (failed(site, readStreamFormat(obj ? obj->inUnit() : nullptr, scope, desc),
               "[mix] can not update stream format info when start")) {
        return NO;
    }
    if (change != nullptr && !RZIsSameFormat(desc, obj->streamDesc())) {
        change->emplace(obj);
    }
    obj->setStreamDesc(desc);
    return YES;
}

BOOL RZStreamMixManager::updateAudioUnitObjectWithStart(const UnitObject& obj,
                                                        std::optional<RZUnitFormatChange>* change) {
    constexpr RZLogSite site(kMixManagerFile,
                             "-[RZStreamMixManager updateAudioUnitObjectWithStart:]");
    if (!obj) {
        // A null unit has no format either; the failure to read it is logged by this call.
        return updateAudioUnitObjStreamFormat(obj);
    }
    const AudioUnit unit = obj->inUnit();
    obj->startAudioUnit();
    AudioComponentDescription component{};
    AudioComponentGetDescription(AudioComponentInstanceGetComponent(unit), &component);
    obj->setCompDesc(component);

    switch (component.componentSubType) {
        case kAudioUnitSubType_GenericOutput:
            obj->setInput_enableIO(NO);
            break;
        case kAudioUnitSubType_RemoteIO:
        case kAudioUnitSubType_VoiceProcessingIO: {
            UInt32 enabled = 0;
            UInt32 size = sizeof(enabled);
            if (failed(site,
                       AudioUnitGetProperty(unit, kAudioOutputUnitProperty_EnableIO,
                                            kAudioUnitScope_Input, 1, &enabled, &size),
                       "[mix] can not update enable_IO info when start")) {
                return NO;
            }
            obj->setInput_enableIO(enabled != 0);
            break;
        }
        default:
            // An unknown kind counts as one with its microphone on, which is never recorded.
            obj->setInput_enableIO(YES);
            break;
    }
    if (!updateAudioUnitObjStreamFormat(obj, change)) {
        return NO;
    }
    if (obj->origin_inputProc() != nullptr) {
        AudioUnitRemoveRenderNotify(unit, RenderNotifyCallback, unit);
    } else {
        obj->setTakenByCallback(NO);
        AudioUnitAddRenderNotify(unit, RenderNotifyCallback, unit);
    }
    return YES;
}

void RZStreamMixManager::updateAudioUnitObjASBD() {
    const RZOperationLock guard(operatorLock_);
    for (const UnitObject& obj : getUnitObjListWithCopy()) {
        if (obj->isCapturing()) {
            updateAudioUnitObjStreamFormat(obj);
        }
    }
}

/// The bus gets the format known so far and, where the device's side is recorded and is another
/// now, that one at once: in the old one the bus would read blocks that are no longer there. A
/// taken-over callback sees the application's side, which stays.
BOOL RZStreamMixManager::giveBusFormats(const UnitObject& obj,
                                        const AudioStreamBasicDescription& deviceSide) {
    if (updateResampleAudioFormat(obj, mixUnit()) != 0) {
        return NO;
    }
    if (RZCapturedScope(*obj) == kAudioUnitScope_Input ||
        RZIsSameFormat(deviceSide, obj->streamDesc())) {
        return YES;
    }
    const RZUnitFormatChange change(obj);
    obj->setStreamDesc(deviceSide);
    obj->keepOnlyBlocksOf(deviceSide);
    return updateResampleAudioFormat(obj, mixUnit()) == 0;
}

BOOL RZStreamMixManager::updateCapturingAudioUnitObjFormatToResampler() {
    constexpr RZLogSite site(kMixManagerFile,
                             "-[RZStreamMixManager updateCapturingAudioUnitObjFormatToResampler]");
    const RZOperationLock guard(operatorLock_);
    if (!isCapturing()) {
        return NO;
    }
    for (const UnitObject& obj : getUnitObjListWithCopy()) {
        if (!obj->isCapturing()) {
            continue;
        }
        AudioStreamBasicDescription fresh{};
        if (readStreamFormat(obj->inUnit(), kAudioUnitScope_Output, fresh) != 0) {
            report(site, 3, TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED,
                   "[mix] can not get audio unit stream format: %p", obj->inUnit());
        } else if (!giveBusFormats(obj, fresh)) {
            report(site, 3, TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED,
                   "[mix] can not set audio unit stream format: %p", obj->inUnit());
        }
    }
    updateAUGraph();
    return YES;
}

BOOL RZStreamMixManager::updateAUGraph() {
    constexpr RZLogSite site(kMixManagerFile, "-[RZStreamMixManager updateAUGraph]");
    if (mGraph() == nullptr || !isCapturing()) {
        return NO;
    }
    TQAudioRecordLock guard(auGraphUpdateLock_);
    // Asked for an answer, the graph does not wait: a slice of it that has begun may want this
    // lock, and with it every unit of the program would stand still until the wait ends.
    Boolean isUpdated = 1;
    OSStatus status = AUGraphUpdate(mGraph(), &isUpdated);
    if (status == 0 && isUpdated == 0) {
        status = kAUGraphErr_CannotDoInCurrentContext;
    }
    // Released before events are raised: a delivery must not wait for a listener of events.
    guard.unlock();
    switch (status) {
        case 0:
            report(site, 2, TQ_EVENT_MIX_CHANGE, TQ_EVENT_DONE, "[mix] AUGraph update success.");
            return YES;
        case kAUGraphErr_CannotDoInCurrentContext:
            // The graph keeps the change and makes it at its next slice.
            report(site, 3, TQ_EVENT_MIX_CHANGE, TQ_EVENT_UPDATE_POSTPONED,
                   "[mix] AUGraph can not update in current context");
            return YES;
        default:
            report(site, 4, TQ_EVENT_MIX_CHANGE, TQ_EVENT_UPDATE_FAILED,
                   "[mix] AUGraph update error");
            return NO;
    }
}
