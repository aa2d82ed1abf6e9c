// Formats of buses.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <thread>
#include <utility>

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

// As for updates of graphs: a callback of the slice may want a lock that the caller holds.
constexpr std::chrono::milliseconds kLongestWait{2};
constexpr std::chrono::microseconds kWaitStep{20};

}  // namespace

// A program that changes the format of a unit that plays has to know from when on its callback is
// handed blocks of the new format.
void Unit::waitForSlice() const {
    const std::uint64_t slice = sliceCount();
    if ((slice & 1U) == 0 || !mayWait()) {
        return;
    }
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    while (sliceCount() == slice && std::chrono::steady_clock::now() < end) {
        // Waking a waiter would be a system call on the render thread, so the waiter polls.
        std::this_thread::sleep_for(kWaitStep);
    }
}

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

ChannelLayout Unit::busLayout(AudioUnitScope scope, UInt32 element) {
    const UInt32 channels = busFormat(scope, element).mChannelsPerFrame;
    const auto& said = (scope == kAudioUnitScope_Input ? inputs_ : outputs_)[element].layout;
    return said.has_value() && said->channels() == channels ? *said : ChannelLayout(channels);
}

OSStatus Unit::writeLayout(PropertyKey key, const void* data, UInt32 size) {
    auto wanted = ChannelLayout::parse(data, size);
    if (!wanted.has_value() ||
        wanted->channels() != busFormat(key.scope, key.element).mChannelsPerFrame) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    (key.scope == kAudioUnitScope_Input ? inputs_ : outputs_)[key.element].layout =
        std::move(wanted);
    return republish();
}

OSStatus Unit::removeLayout(PropertyKey key) {
    (key.scope == kAudioUnitScope_Input ? inputs_ : outputs_)[key.element].layout.reset();
    return republish();
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
