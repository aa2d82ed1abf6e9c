#include <algorithm>

#include "RZStreamMixManager.h"
#include "TQAudioRecordLock.h"
#include "TQAudioUnitRecordResolveManager.h"

// What becomes of the program's units, for those who ask.

RZUnitReason RZStreamMixManager::whyNotCaptured(const UnitObject& obj) const {
    if (!obj) {
        return RZUnitReason::Uninitialised;
    }
    if (isCapturing() && obj->isCapturing()) {
        return isBusAnothers(obj) ? RZUnitReason::NumberTaken : RZUnitReason::Captured;
    }
    const auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    if (resolver.existAudioUnit(obj->inUnit()) || resolver.existAuGraph(obj->auGraph())) {
        return RZUnitReason::Anothers;
    }
    if (!obj->isStarted()) {
        return RZUnitReason::NotStarted;
    }
    if (obj->isExcluded()) {
        return RZUnitReason::Excluded;
    }
    if (obj->input_enableIO()) {
        return RZUnitReason::MicrophoneOn;
    }
    if (!obj->isAvailable()) {
        return RZUnitReason::NoFormat;
    }
    return isCapturing() ? RZUnitReason::MixRefused : RZUnitReason::CaptureOff;
}

/// A unit that starts now is connected next; that the mix refuses it would show later.
RZUnitReason RZStreamMixManager::reasonAtStart(const UnitObject& obj) const {
    const RZUnitReason reason = whyNotCaptured(obj);
    return reason == RZUnitReason::MixRefused ? RZUnitReason::Captured : reason;
}

std::atomic<const void*>& RZStreamMixManager::busUnit(const UnitObject& obj) {
    return busUnits_[static_cast<std::size_t>(obj->trackId()) % busUnits_.size()];
}

/// A number that was given twice leads both units to one bus. The later one has it; the other one's
/// blocks are read by nobody from now on.
void RZStreamMixManager::takeBus(const UnitObject& obj) {
    const void* const before = busUnit(obj).exchange(obj->inUnit());
    const auto other = before == obj->inUnit() ? nullptr : findAudioUnitObj(before);
    if (other && other->isCapturing()) {
        RZUnitFacts::shared().numberTaken(before);
    }
}

BOOL RZStreamMixManager::leaveBus(const UnitObject& obj) {
    const void* unit = obj->inUnit();
    return busUnit(obj).compare_exchange_strong(unit, nullptr);
}

BOOL RZStreamMixManager::isBusAnothers(const UnitObject& obj) const {
    const void* const unit = busUnits_[static_cast<std::size_t>(obj->trackId()) % busUnits_.size()];
    return unit != nullptr && unit != obj->inUnit();
}

/// What the unit has left in its rings is still read: its bus goes on, fed by what is left. The
/// edit takes the place of the disconnection that has just been asked for; both come with the next
/// update of the graph. A pass that comes before the update finds either a unit that is captured or
/// its tail.
void RZStreamMixManager::stopUnitAndKeepTail(const UnitObject& obj, BOOL hadBus) {
    std::vector<UnitObject> read;  // let go behind the lock
    {
        const TQAudioRecordLock guard(auGraphUpdateLock_);
        obj->stopAudioUnit();
        obj->stopCapture();
        if (!hadBus) {
            // Another unit's sound has gone into the mix meanwhile: this would come late.
            obj->discardWaiting(NO, RZFrameLoss::LeftAtStop);
        }
        if (isBusAnothers(obj)) {
            return;
        }
        const bool isAnythingLeft = obj->waitingFrames(NO) > 0 || obj->waitingFrames(YES) > 0;
        // Units that had the bus before may have left something that is not read yet.
        if (!isAnythingLeft && tails_.isEmpty(static_cast<UInt32>(obj->trackId()))) {
            return;
        }
        read = tails_.takeRead();
        if (isAnythingLeft) {
            tails_.add(obj);
        }
    }
    const AURenderCallbackStruct input{RZTailNodeProcessCallback, this};
    if (AUGraphSetNodeInputCallback(mGraph(), mixNode(), static_cast<UInt32>(obj->trackId()),
                                    &input) != 0) {
        const TQAudioRecordLock guard(auGraphUpdateLock_);
        tails_.forget(obj);
    }
}

void RZStreamMixManager::resumeTail(const UnitObject& obj) {
    if (!tails_.has(obj)) {
        return;
    }
    const TQAudioRecordLock guard(auGraphUpdateLock_);
    tails_.resume(obj);
}

RZFrameSums RZStreamMixManager::frameSums(int track) const {
    // No pass of the private graph moves frames meanwhile.
    const TQAudioRecordLock guard(auGraphUpdateLock_);
    RZFrameSums sums;
    const auto isOfTrack = [track](int number) { return track == 0 || number == track; };
    for (int number = 0; number <= RZUnitFacts::kTracks; ++number) {
        if (isOfTrack(number)) {
            sums += RZFrameAccount::ofTrack(number).sums();
        }
    }
    std::vector<UnitObject> objects = getUnitObjListWithCopy();
    for (const UnitObject& obj : tails_.list()) {
        if (std::find(objects.begin(), objects.end(), obj) == objects.end()) {
            objects.push_back(obj);
        }
    }
    for (const UnitObject& obj : objects) {
        if (isOfTrack(obj->trackId())) {
            sums.addIdle(obj->idleFrames());
            sums.pre.waiting += obj->waitingFrames(NO);
            sums.post.waiting += obj->waitingFrames(YES);
        }
    }
    return sums;
}

std::vector<RZUnitFact> RZStreamMixManager::unitFacts() const {
    std::vector<RZUnitFact> facts = RZUnitFacts::shared().list();
    for (RZUnitFact& fact : facts) {
        if (fact.track == 0) {
            continue;
        }
        if (const auto obj = findAudioUnitObj(fact.unit)) {
            fact.graph = obj->auGraph();
            // An object counts as capturing from the moment it is to join the mix.
            const RZUnitReason reason = whyNotCaptured(obj);
            if (reason != RZUnitReason::Captured || fact.reason != RZUnitReason::MixRefused) {
                fact.reason = reason;
            }
        }
    }
    return facts;
}
