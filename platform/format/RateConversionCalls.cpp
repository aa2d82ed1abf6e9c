#include <TQPlatform/RateConversion.h>

#include <new>
#include <stdexcept>

#include "format/RateConverter.h"

OSStatus TQPrepareRateConversion(Float64 inputRate, Float64 outputRate, UInt32 channels,
                                 UInt32 maximumFrames) {
    try {
        tqplatform::RateConverter::prepare(inputRate, outputRate, channels, maximumFrames);
        return noErr;
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    } catch (const std::runtime_error&) {
        return kAudio_ParamError;
    }
}
