#include "unit/InputSource.h"

#include "unit/Unit.h"

namespace tqplatform {

OSStatus InputSource::pull(AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                           UInt32 bus, UInt32 frames, AudioBufferList& list) const noexcept {
    if (callback.inputProc != nullptr) {
        return callback.inputProc(callback.inputProcRefCon, &flags, &time, bus, frames, &list);
    }
    const UnitTable::Access source(units(), unit);
    if (!source) {
        return kAudioUnitErr_NoConnection;
    }
    return source->render(&flags, &time, outputBus, frames, &list);
}

}  // namespace tqplatform
