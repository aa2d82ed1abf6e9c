// Formats of buses.

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "component/Status.h"
#include "unit/Unit.h"

namespace tqplatform {

namespace {

/// A format may be handed over without its last, reserved field.
constexpr UInt32 kShortFormatSize = offsetof(AudioStreamBasicDescription, mReserved);

/// The global scope stands for the output.
AudioUnitScope sideOf(AudioUnitScope scope) {
    return scope == kAudioUnitScope_Input ? AudioUnitScope{kAudioUnitScope_Input}
                                          : AudioUnitScope{kAudioUnitScope_Output};
}

}  // namespace

PCMFormat Unit::parsed(const AudioStreamBasicDescription& format) {
    // Only descriptions that could be parsed ever become the format of a bus.
    return *PCMFormat::parse(format);
}

AudioStreamBasicDescription Unit::busFormat(AudioUnitScope scope, UInt32 element) {
    return (scope == kAudioUnitScope_Input ? inputs_ : outputs_)[element].format;
}

bool Unit::isFormatWritable(AudioUnitScope scope, UInt32 element) {
    return scope != kAudioUnitScope_Input || !inputs_[element].source.isConnection();
}

bool Unit::acceptsFormat(AudioUnitScope /*scope*/, const PCMFormat& /*format*/) {
    return true;
}

bool Unit::isFormatWritableAt(PropertyKey key) {
    return isFormatWritable(sideOf(key.scope), key.element);
}

AudioStreamBasicDescription Unit::format(PropertyKey key) {
    return busFormat(sideOf(key.scope), key.element);
}

Float64 Unit::sampleRate(PropertyKey key) {
    return format(key).mSampleRate;
}

OSStatus Unit::writeFormat(PropertyKey key, const void* data, UInt32 size) {
    if (size < kShortFormatSize) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    AudioStreamBasicDescription wanted{};
    std::memcpy(&wanted, data, std::min<std::size_t>(size, sizeof wanted));
    return setFormat(sideOf(key.scope), key.element, wanted);
}

OSStatus Unit::writeSampleRate(PropertyKey key, Float64 rate) {
    AudioStreamBasicDescription wanted = format(key);
    wanted.mSampleRate = rate;
    return setFormat(sideOf(key.scope), key.element, wanted);
}

OSStatus Unit::setFormat(AudioUnitScope scope, UInt32 element,
                         const AudioStreamBasicDescription& format) {
    const auto wanted = PCMFormat::parse(format);
    if (!wanted) {
        return kAudioUnitErr_FormatNotSupported;
    }
    const AudioStreamBasicDescription current = busFormat(scope, element);
    // The very bytes: whoever sets what it has read changes nothing, whatever a comparison of
    // numbers would say.  NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    if (std::memcmp(&current, &format, sizeof format) == 0) {
        return noErr;
    }
    if (!isFormatWritable(scope, element)) {
        // Another way to say the same is no change either.
        return okOr(sameFormat(parsed(current), *wanted), kAudioUnitErr_PropertyNotWritable);
    }
    if (!acceptsFormat(scope, *wanted)) {
        return kAudioUnitErr_FormatNotSupported;
    }
    Bus& bus = (scope == kAudioUnitScope_Input ? inputs_ : outputs_)[element];
    const AudioStreamBasicDescription before = bus.format;
    bus.format = format;
    try {
        const OSStatus status = republish();
        if (status != noErr) {
            bus.format = before;
        }
        return status;
    } catch (...) {
        bus.format = before;
        throw;
    }
}

}  // namespace tqplatform
