#include "UniversalNodeProcessCallback.h"

#include <audio_stats.h>

#include <optional>

#include "RZBoundary.h"
#include "RZBufferList.h"
#include "RZStreamMixManager+Report.h"
#include "RZTrackTails.h"
#include "TQAudioRecordLock.h"
#include "common/Threads.h"

namespace {

/// What was readable before a pass read it, bytes.
struct Backlog {
    std::size_t pre = 0;
    std::size_t post = 0;
};

void readPre(RZReplayAudioUnitObject& obj, AudioBufferList* list, UInt32 frames) {
    if (obj.tryReadBuffersTo(list, frames, NO)) {
        obj.account().delivered(false, frames);
    } else {
        fillSilence(*list, obj.streamDesc());
    }
}

/// A side that nobody wants any more is not read: what was stored while somebody did would be heard
/// by whoever wants it next.
void discardUnwanted(RZReplayAudioUnitObject& obj, UInt32 type) {
    const auto discard = [&](UInt32 wanted, BOOL isProcessed) {
        if ((type & wanted) == 0 && obj.getRingBufferSize(isProcessed) > 0) {
            obj.discardWaiting(isProcessed, RZFrameLoss::NotWanted);
        }
    };
    discard(RZPCMDataTypePre, NO);
    discard(RZPCMDataTypePost, YES);
}

/// Every whole block that has piled up; the rest of a block stays for the next cycle.
void deliverPost(RZStreamMixManager& manager, RZReplayAudioUnitObject& obj,
                 const RZReplayASBDInfo& info, UInt32 frames, AudioBufferList* ioData) {
    // The bus has room for its own samples: of larger ones a block is shorter.
    std::optional<RZBufferListView> view;
    AudioBufferList* list = ioData;
    if (RZReplayAudioUnitObject::keepsFloatTracks() && obj.needFormatToS16()) {
        view.emplace(*ioData, obj.formatRead(YES), frames);
        list = view->get();
        frames = view->frames();
    }
    while (frames != 0 && obj.tryReadBuffersTo(list, frames, YES)) {
        if (const auto receiver = manager.callback(); receiver && manager.isCapturing()) {
            receiver->onAudioReceivePostPCM(list, info);
            obj.account().delivered(true, frames);
        } else {
            obj.account().lost(true, RZFrameLoss::NoListener, frames);
        }
    }
}

/// Post blocks go to the listeners at once, one pre block (or silence) to the mixer.
Backlog readTrack(RZStreamMixManager& manager, RZReplayAudioUnitObject& obj,
                  const AudioTimeStamp* ts, UInt32 bus, UInt32 frames, AudioBufferList* ioData) {
    Backlog backlog;
    const auto callback = manager.callback();
    const auto type = static_cast<UInt32>(callback ? callback->getPCMDataType() : 0);
    // While the unit's format changes there is nothing whose format is known.
    const bool isReadable = manager.isCapturing() && obj.isFormatSettled();
    const bool capturing = isReadable && obj.isCapturing();
    const bool isBehindTails = isReadable && !manager.trackTails().isEmpty(bus);
    RZTrackTails& tails = manager.trackTails();
    const RZTrackPass pass{manager, bus, type, frames,
                           ts == nullptr ? 0 : manager.microsecondsOfHostTime(ts->mHostTime)};
    if (isBehindTails) {
        tails.deliverPost(pass, *ioData);
    }
    if (capturing) {
        discardUnwanted(obj, type);
        obj.updateAsbdInfo();
        if ((type & RZPCMDataTypePost) != 0) {
            backlog.post = obj.getRingBufferSize(YES);
            const auto info = obj.asbdInfo();
            info->setTimeStamp(pass.microseconds);
            deliverPost(manager, obj, *info, frames, ioData);
        }
    }
    fillSilence(*ioData, obj.streamDesc());
    const UInt32 filled = isBehindTails ? tails.fillPre(pass, *ioData) : 0;
    if (capturing && (type & RZPCMDataTypePre) != 0) {
        backlog.pre = obj.getRingBufferSize(NO);
        if (filled == 0) {
            readPre(obj, ioData, frames);
        } else if (filled < frames) {
            RZBufferListView rest(*ioData, frames, filled, frames - filled);
            readPre(obj, rest.get(), rest.frames());
        }
    }
    return backlog;
}

}  // namespace

OSStatus UniversalNodeProcessCallback(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                                      const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                                      AudioBufferList* ioData) {
    constexpr RZLogSite site(kMixManagerFile, "UniversalNodeProcessCallback");
    const tqcommon::RenderThreadScope renderThread;
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
    const TQAudioRecordLock guard(manager.auGraphUpdateLock());
    const auto obj = manager.findAudioUnitObj(refCon);
    if (!obj || ioData == nullptr) {
        return 0;
    }
    const auto id = static_cast<unsigned long>(obj->trackId());
    RZRoadGuarded(site, [&] {
        const Backlog backlog = readTrack(manager, *obj, ts, bus, frames, ioData);
        korva_audio_utils::KorvaAudioStats::HookAudioTrackStat stat{};
        stat.audio_track_id = id;
        stat.pre_buffer_size = static_cast<std::uint16_t>(backlog.pre);
        stat.post_buffer_size = static_cast<std::uint16_t>(backlog.post);
        korva_audio_utils::KorvaAudioStats::getInstance()->updateHookAudioTrackStats(id, stat);
    });
    return 0;
}
