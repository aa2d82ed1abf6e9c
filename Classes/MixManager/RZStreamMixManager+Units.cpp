#include "RZStreamMixManager.h"
#include "TQAudioUnitRecordResolveManager.h"

// What becomes of the program's units, for those who ask.

RZUnitReason RZStreamMixManager::whyNotCaptured(const UnitObject& obj) const {
    if (!obj) {
        return RZUnitReason::Uninitialised;
    }
    if (isCapturing() && obj->isCapturing()) {
        return RZUnitReason::Captured;
    }
    const auto& resolver = TQAudioUnitRecordResolveManager::sharedManager();
    if (resolver.existAudioUnit(obj->inUnit()) || resolver.existAuGraph(obj->auGraph())) {
        return RZUnitReason::Anothers;
    }
    if (!obj->isStarted()) {
        return RZUnitReason::NotStarted;
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
