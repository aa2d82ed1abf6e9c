#include "RZTrackTails.h"

#include <algorithm>
#include <utility>

#include "RZBoundary.h"
#include "RZBufferList.h"
#include "RZStreamFormat.h"
#include "RZStreamMixManager+Report.h"
#include "TQAudioRecordLock.h"
#include "common/Threads.h"

namespace {

/// Whether a list of that many frames is laid out as the format says.
bool hasLayout(const AudioBufferList& list, UInt32 frames,
               const AudioStreamBasicDescription& format) {
    const bool isPlanar = (format.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    return list.mNumberBuffers == (isPlanar ? format.mChannelsPerFrame : 1) &&
           list.mBuffers[0].mDataByteSize == frames * format.mBytesPerFrame;
}

}  // namespace

RZBufferListView::RZBufferListView(const AudioBufferList& list, UInt32 all, UInt32 first,
                                   UInt32 frames) noexcept
    : frames_(frames) {
    list_.mNumberBuffers = std::min(list.mNumberBuffers, kMostBuffers);
    for (UInt32 i = 0; i < list_.mNumberBuffers; ++i) {
        const AudioBuffer& from = list.mBuffers[i];
        const UInt32 frameBytes = all == 0 ? 0 : from.mDataByteSize / all;
        auto* const data = static_cast<std::byte*>(from.mData);
        list_.mBuffers[i] = {from.mNumberChannels, frames * frameBytes,
                             data == nullptr ? nullptr : data + std::size_t{first} * frameBytes};
    }
}

RZBufferListView::RZBufferListView(const AudioBufferList& list,
                                   const AudioStreamBasicDescription& format,
                                   UInt32 frames) noexcept
    : frames_(0) {
    const bool isPlanar = (format.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0;
    const UInt32 count = isPlanar ? std::min(format.mChannelsPerFrame, kMostBuffers) : 1;
    list_.mNumberBuffers = count;
    if (list.mNumberBuffers == 0 || count == 0 || format.mBytesPerFrame == 0) {
        list_.mNumberBuffers = 0;
        return;
    }
    // The first buffer's memory alone: the bus may have fewer buffers than this format.
    const AudioBuffer& from = list.mBuffers[0];
    frames_ = std::min(frames, from.mDataByteSize / count / format.mBytesPerFrame);
    const UInt32 bytes = frames_ * format.mBytesPerFrame;
    for (UInt32 i = 0; i < count; ++i) {
        list_.mBuffers[i] = {isPlanar ? 1 : format.mChannelsPerFrame, bytes,
                             static_cast<std::byte*>(from.mData) + std::size_t{i} * bytes};
    }
}

void RZTrackTails::add(const UnitObject& obj) {
    const auto bus = static_cast<std::size_t>(obj->trackId());
    if (bus >= kBuses) {
        return;
    }
    // One that has played on and stops again is read to its end as a whole.
    forget(obj);
    queues_[bus].tails.push_back({obj, std::nullopt});
}

std::vector<RZTrackTails::UnitObject> RZTrackTails::takeRead() {
    std::vector<UnitObject> read;
    for (Queue& queue : queues_) {
        const auto end = queue.tails.begin() + static_cast<std::ptrdiff_t>(queue.done);
        std::for_each(queue.tails.begin(), end,
                      [&](Tail& tail) { read.push_back(std::move(tail.obj)); });
        queue.tails.erase(queue.tails.begin(), end);
        queue.done = 0;
    }
    return read;
}

std::vector<RZTrackTails::UnitObject> RZTrackTails::takeAll() {
    std::vector<UnitObject> all = list();
    queues_ = {};
    return all;
}

bool RZTrackTails::has(const UnitObject& obj) const {
    return std::any_of(queues_.begin(), queues_.end(), [&](const Queue& queue) {
        return std::any_of(queue.tails.begin(), queue.tails.end(),
                           [&](const Tail& tail) { return tail.obj == obj; });
    });
}

void RZTrackTails::resume(const UnitObject& obj) {
    for (Queue& queue : queues_) {
        for (std::size_t i = queue.done; i < queue.tails.size(); ++i) {
            if (queue.tails[i].obj == obj) {
                queue.tails[i].resumed = {obj->waitingFrames(YES), obj->formatRead(YES)};
            }
        }
    }
}

void RZTrackTails::forget(const UnitObject& obj) {
    for (Queue& queue : queues_) {
        const auto first = queue.tails.begin() + static_cast<std::ptrdiff_t>(queue.done);
        queue.tails.erase(std::remove_if(first, queue.tails.end(),
                                         [&](const Tail& tail) { return tail.obj == obj; }),
                          queue.tails.end());
    }
}

std::vector<RZTrackTails::UnitObject> RZTrackTails::list() const {
    std::vector<UnitObject> all;
    for (const Queue& queue : queues_) {
        for (const Tail& tail : queue.tails) {
            all.push_back(tail.obj);
        }
    }
    return all;
}

void RZTrackTails::deliverPost(const RZTrackPass& pass, AudioBufferList& scratch) {
    Queue& queue = queues_[pass.bus];
    for (std::size_t i = queue.done; i < queue.tails.size(); ++i) {
        deliverPost(pass, queue.tails[i], scratch);
    }
}

void RZTrackTails::deliverPost(const RZTrackPass& pass, Tail& tail, AudioBufferList& scratch) {
    RZReplayAudioUnitObject& obj = *tail.obj;
    if (!obj.isFormatSettled()) {
        return;
    }
    const AudioStreamBasicDescription format = obj.formatRead(YES);
    std::size_t left = obj.waitingFrames(YES);
    if (tail.resumed) {
        left = RZIsSameFormat(tail.resumed->format, format)
                   ? std::min(left, std::exchange(tail.resumed->postFrames, 0))
                   : 0;
    }
    if (left == 0) {
        return;
    }
    // The tail is older than the start that asks for stale blocks to be thrown away.
    const BOOL pending = tail.resumed && obj.pendingCleanPostRingBuffer();
    if (pending) {
        obj.setPendingCleanPostRingBuffer(NO);
    }
    obj.updateAsbdInfo();
    const auto info = obj.asbdInfo();
    info->setTimeStamp(pass.microseconds);
    while (left > 0) {
        RZBufferListView view(scratch, format,
                              static_cast<UInt32>(std::min<std::size_t>(left, pass.frames)));
        const auto callback = pass.manager.callback();
        const bool isWanted = (pass.type & RZPCMDataTypePost) != 0 && callback;
        if (!isWanted || !obj.tryReadBuffersTo(view.get(), view.frames(), YES)) {
            obj.discardWaiting(YES, isWanted ? RZFrameLoss::LeftAtStop : RZFrameLoss::NotWanted);
            break;
        }
        callback->onAudioReceivePostPCM(view.get(), *info);
        obj.account().delivered(true, view.frames());
        left -= view.frames();
    }
    if (pending) {
        obj.setPendingCleanPostRingBuffer(YES);
    }
}

void RZTrackTails::Queue::loseRest() {
    for (; done < tails.size(); ++done) {
        if (!tails[done].resumed) {
            tails[done].obj->discardWaiting(NO, RZFrameLoss::FormatChanged);
        }
    }
}

void RZTrackTails::beginBusFormat(UInt32 bus) {
    if (bus < kBuses) {
        queues_[bus].isFormatChanging = true;
    }
}

void RZTrackTails::endBusFormat(UInt32 bus, const AudioStreamBasicDescription* format) {
    if (bus < kBuses) {
        queues_[bus].isFormatChanging = false;
        if (format != nullptr) {
            queues_[bus].format = *format;
        }
    }
}

UInt32 RZTrackTails::fillPre(const RZTrackPass& pass, AudioBufferList& ioData) {
    Queue& queue = queues_[pass.bus];
    const AudioStreamBasicDescription& busFormat = queue.format;
    if (!hasLayout(ioData, pass.frames, busFormat)) {
        if (!queue.isFormatChanging) {
            queue.loseRest();
        }
        return 0;
    }
    fillSilence(ioData, busFormat);
    UInt32 filled = 0;
    while (queue.done < queue.tails.size()) {
        const Tail& tail = queue.tails[queue.done];
        RZReplayAudioUnitObject& obj = *tail.obj;
        if (!tail.resumed) {
            if ((pass.type & RZPCMDataTypePre) == 0) {
                obj.discardWaiting(NO, RZFrameLoss::NotWanted);
            } else if (!RZIsSameFormat(obj.formatRead(NO), busFormat)) {
                obj.discardWaiting(NO, RZFrameLoss::FormatChanged);
            }
            const auto frames = static_cast<UInt32>(
                std::min<std::size_t>(obj.waitingFrames(NO), pass.frames - filled));
            if (frames > 0) {
                RZBufferListView view(ioData, pass.frames, filled, frames);
                if (obj.tryReadBuffersTo(view.get(), frames, NO)) {
                    obj.account().delivered(false, frames);
                    filled += frames;
                } else {
                    obj.discardWaiting(NO, RZFrameLoss::LeftAtStop);
                }
            }
            if (obj.waitingFrames(NO) > 0) {
                break;  // the next pass goes on with it
            }
        }
        ++queue.done;
    }
    return filled;
}

OSStatus RZTailNodeProcessCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                                   const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                                   AudioBufferList* ioData) {
    constexpr RZLogSite site(kMixManagerFile, "RZTailNodeProcessCallback");
    const tqcommon::RenderThreadScope renderThread;
    RZStreamMixManager& manager = *static_cast<RZStreamMixManager*>(refCon);
    const TQAudioRecordLock guard(manager.auGraphUpdateLock());
    if (ioData == nullptr) {
        return 0;
    }
    RZTrackTails& tails = manager.trackTails();
    if (!manager.isCapturing() || tails.isEmpty(bus)) {
        fillSilence(*ioData);
        if (flags != nullptr) {
            // Whose format the bus has is not known any more, and cleared bits may be no silence.
            *flags |= kAudioUnitRenderAction_OutputIsSilence;
        }
        return 0;
    }
    RZRoadGuarded(site, [&] {
        const auto callback = manager.callback();
        const RZTrackPass pass{
            manager, bus, static_cast<UInt32>(callback ? callback->getPCMDataType() : 0), frames,
            ts == nullptr ? 0 : manager.microsecondsOfHostTime(ts->mHostTime)};
        tails.deliverPost(pass, *ioData);
        fillSilence(*ioData);
        tails.fillPre(pass, *ioData);
    });
    return 0;
}
