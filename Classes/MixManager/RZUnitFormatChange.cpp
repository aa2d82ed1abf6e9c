#include "RZUnitFormatChange.h"

#include <cstring>

#include "RZStreamFormat.h"
#include "RZStreamMixManager.h"
#include "TQAudioRecordLock.h"

namespace {

/// The call asks for what the unit has already.
bool asksForTheSame(const AudioStreamBasicDescription& known, AudioUnitPropertyID id,
                    const void* data, UInt32 size) {
    if (id == kAudioUnitProperty_SampleRate) {
        Float64 rate = 0;
        if (size < sizeof rate) {
            return false;
        }
        std::memcpy(&rate, data, sizeof rate);
        return rate == known.mSampleRate;
    }
    AudioStreamBasicDescription wanted{};
    if (size < sizeof wanted) {
        return false;
    }
    std::memcpy(&wanted, data, sizeof wanted);
    return RZIsSameFormat(wanted, known);
}

}  // namespace

AudioUnitScope RZCapturedScope(const RZReplayAudioUnitObject& obj) noexcept {
    return obj.origin_inputProc() != nullptr ? kAudioUnitScope_Input : kAudioUnitScope_Output;
}

RZUnitFormatChange::RZUnitFormatChange(std::shared_ptr<RZReplayAudioUnitObject> obj)
    : obj_(std::move(obj)) {
    obj_->beginFormatChange();
    // The private graph reads under this lock: behind it every read finds the change open.
    const TQAudioRecordLock guard(RZStreamMixManager::sharedManager()->auGraphUpdateLock());
}

std::shared_ptr<RZReplayAudioUnitObject> RZUnitToReformat(AudioUnit unit, AudioUnitPropertyID id,
                                                          AudioUnitScope scope,
                                                          AudioUnitElement element,
                                                          const void* data, UInt32 size) {
    const bool isFormat =
        id == kAudioUnitProperty_StreamFormat || id == kAudioUnitProperty_SampleRate;
    if (!isFormat || element != 0 || data == nullptr) {
        return nullptr;
    }
    auto obj = RZStreamMixManager::sharedManager()->findAudioUnitObj(unit);
    if (!obj || !obj->isStarted()) {
        return nullptr;
    }
    // The global scope stands for the output.
    const AudioUnitScope side = scope == kAudioUnitScope_Input
                                    ? AudioUnitScope{kAudioUnitScope_Input}
                                    : AudioUnitScope{kAudioUnitScope_Output};
    if (side != RZCapturedScope(*obj) || asksForTheSame(obj->streamDesc(), id, data, size)) {
        return nullptr;
    }
    return obj;
}
