#include "TQAudioCaptureBase.h"

#include <Foundation/Foundation.h>
#include <audio_hook_config.h>
#include <event_filter.h>
#include <log.h>

#include "RZBoundary.h"
#include "RZBufferList.h"
#include "RZHostCallbacks.h"
#include "RZLogSite.h"
#include "RZStreamMixManager.h"
#include "TQAudioRecordLog.h"
#include "TQHookConfigResult.h"
#include "common/Threads.h"
#include "tq_events.h"

using korva_audio_utils::AudioHookConfig;
using korva_audio_utils::AudioHookFunctionGuards;
using korva_audio_utils::EventFilter;
using korva_audio_utils::LogPriority;

namespace {

constexpr const char* kFile = "Classes/Base/TQAudioCaptureBase";
constexpr long kIdleEventIntervalMilliseconds = 2000;

/// One for all units: lost units are reported together.
EventFilter& sharedEventFilter() {
    static auto* const filter = new EventFilter;
    return *filter;
}

/// Makes it while the image loads, so that no render cycle allocates it.
[[maybe_unused]] EventFilter& earlyEventFilter = sharedEventFilter();

/// Passes the utility layer's messages to the log. The line numbers are constants: they tell
/// readers of the log the four priorities apart.
void korvaAudioLogHandler(LogPriority priority, const char* tag, const char* text) {
    struct Place {
        int level;
        int line;
    };
    Place place{};
    switch (priority) {
        case LogPriority::Debug:
            place = {1, 76};
            break;
        case LogPriority::Info:
            place = {2, 80};
            break;
        case LogPriority::Warn:
            place = {3, 88};
            break;
        case LogPriority::Error:
            place = {4, 84};
            break;
        default:
            return;
    }
    RZLogSite(kFile, "korvaAudioLogHandler")
        .log(place.level, RZLogFormat("[%s] %s", place.line), tag, text);
}

}  // namespace

std::string RZReplayAudioUnitCapture_hookConfigFolder() {
    const auto caches =
        NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
    return caches.empty() ? std::string() : caches.front() + "/korva_audio_utils";
}

int RZReplayAudioUnitCapture_initHookConfig() {
    const std::string directory = RZReplayAudioUnitCapture_hookConfigFolder();
    BOOL isDirectory = NO;
    const NSFileManager& files = NSFileManager::defaultManager();
    if (!files.fileExistsAtPath(directory, &isDirectory) || !isDirectory) {
        // A failure shows in the store's own result.
        files.createDirectoryAtPath(directory, YES);
    }
    korva_audio_utils::setLogHandler(korvaAudioLogHandler);
    if (directory.empty()) {
        korva_audio_utils::log(LogPriority::Warn, korva_audio_utils::kUtilityLogTag,
                               "This user has no home for the crash guard, the hooks stay out");
    }
    return publicHookConfigResult(AudioHookConfig::getInstance()->init(directory.c_str()));
}

namespace {

/// What the host's callback has made of a block.
struct RenderedBlock {
    OSStatus status;
    const AudioUnitRenderActionFlags* flags;
    UInt32 frames;
    AudioBufferList* list;
    bool hasEffects;  ///< ducking or compression is on
};

/// The device plays nothing of a block whose callback has failed, whatever is in its buffers, and
/// of unsigned samples that are said to be silent: their bits are cleared, which is no silence.
bool isPlayedAsSilence(const RenderedBlock& block, const RZReplayAudioUnitObject& obj) {
    return block.status != 0 || (block.flags != nullptr &&
                                 (*block.flags & kAudioUnitRenderAction_OutputIsSilence) != 0 &&
                                 isUnsigned(obj.streamDesc()));
}

void store(RZReplayAudioUnitObject& obj, const RenderedBlock& block, BOOL isProcessed) {
    if (isPlayedAsSilence(block, obj)) {
        obj.tryWriteSilence(block.frames, isProcessed);
    } else {
        obj.tryWriteBuffersFrom(block.list, block.frames, isProcessed);
    }
}

/// What is done with a rendered block.
void takeRenderedBlock(const RZLogSite& site, RZStreamMixManager& manager,
                       RZReplayAudioUnitObject* obj, const void* refCon,
                       const RenderedBlock& block) {
    if (obj != nullptr) {
        obj->setTakenByCallback(YES);
    }
    const auto callback = manager.callback();
    const auto type = static_cast<UInt32>(callback ? callback->getPCMDataType() : 0);
    const bool capturing = obj != nullptr && obj->isCapturing() && manager.isCapturing();
    if (capturing && (type & RZPCMDataTypePre) != 0) {
        store(*obj, block, NO);
    }
    // Not only while capturing: this changes what the device plays.
    if (const auto* const owner = obj == nullptr ? nullptr : obj->blockOwner()) {
        owner->replace(owner->context, block.list, block.frames);
    } else if (obj != nullptr && block.hasEffects && block.status == 0) {
        obj->processBuffer(block.list, block.frames);
    }
    if (obj != nullptr) {
        const bool stillCapturing = obj->isCapturing() && manager.isCapturing();
        if (stillCapturing) {
            if ((type & RZPCMDataTypePost) != 0) {
                store(*obj, block, YES);
            }
        } else {
            sharedEventFilter().SetInterval(kIdleEventIntervalMilliseconds);
        }
        if (capturing || stillCapturing) {
            obj->account().rendered(block.frames, {capturing, (type & RZPCMDataTypePre) != 0},
                                    {stillCapturing, (type & RZPCMDataTypePost) != 0});
        } else {
            obj->countIdle(block.frames);
        }
        return;
    }
    sharedEventFilter().SetInterval(kIdleEventIntervalMilliseconds);
    if (sharedEventFilter().FilterEvent(TQ_EVENT_BUFFER_WRITE, TQ_EVENT_UNIT_UNKNOWN)) {
        const RZLogFormat format(
            "[AudioUnitHook] UniversalInputProcessCallback, audio unit obj not found: %p");
        const std::string message = RZFormat(format.text, refCon);
        site.write(3, format.line, message);
        manager.onAudioRecordEvent(TQ_EVENT_BUFFER_WRITE, TQ_EVENT_UNIT_UNKNOWN, message);
    }
}

}  // namespace

OSStatus RZReplayAudioUnitCapture_InputProcessCallback(void* refCon,
                                                       AudioUnitRenderActionFlags* flags,
                                                       const AudioTimeStamp* ts, UInt32 bus,
                                                       UInt32 frames, AudioBufferList* ioData) {
    constexpr RZLogSite site(kFile, "RZReplayAudioUnitCapture_InputProcessCallback");
    const tqcommon::RenderThreadScope renderThread;
    const AudioHookFunctionGuards crashGuard;
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
    AURenderCallbackStruct origin{};
    auto obj = manager.findAudioUnitObj(refCon);
    if (obj) {
        origin = obj->unitsCallback();
    } else if (obj = manager.findAudioUnitObjByAUGraph(refCon); obj) {
        // Ours stands at a node, whose graph is its reference.
        origin = obj->nodesCallback();
    }
    // Asked before: what the host puts into the list is told from what was there.
    const bool hasEffects = manager.isDuckingEnable() || manager.isCompressorEnable();
    if (obj) {
        obj->noteRenderBegins();
        if (hasEffects) {
            obj->noteGivenMemory(ioData);
        }
    }
    if (origin.inputProc == nullptr) {
        // No object, or not yet its callback: the host plays all the same.
        origin = RZHostCallbacks::shared().of(refCon).callback;
    }
    OSStatus result = 0;
    if (origin.inputProc != nullptr) {
        result = origin.inputProc(origin.inputProcRefCon, flags, ts, bus, frames, ioData);
    }
    const RenderedBlock block{result, flags, frames, ioData, hasEffects};
    RZGuarded(site, [&] { takeRenderedBlock(site, manager, obj.get(), refCon, block); });
    return result;
}
