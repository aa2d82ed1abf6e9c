#include <array>
#include <cstddef>

#include "Host.h"

// A unit that changes sample type, interleaving and channels while it plays, and between two
// starts.

namespace {

constexpr Float64 kRate = 48000;

AudioStreamBasicDescription formatOf(UInt32 flags, UInt32 bits, UInt32 channels, bool isPlanar) {
    const UInt32 bytes = bits / 8 * (isPlanar ? 1 : channels);
    const UInt32 layout = isPlanar ? UInt32{kAudioFormatFlagIsNonInterleaved} : 0U;
    return {kRate,
            kAudioFormatLinearPCM,
            flags | kAudioFormatFlagIsPacked | layout,
            bytes,
            1,
            bytes,
            channels,
            bits,
            0};
}

/// The same noise on all channels, exact in 16 bits, written in the format of the moment.
struct Noise {
    AudioStreamBasicDescription format{};
    std::uint32_t state = 7;

    static OSStatus render(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                           UInt32 frames, AudioBufferList* data) {
        Noise& noise = *static_cast<Noise*>(refCon);
        const bool isFloat = (noise.format.mFormatFlags & kAudioFormatFlagIsFloat) != 0;
        for (UInt32 i = 0; i < frames; ++i) {
            noise.state = noise.state * 1664525U + 1013904223U;
            const auto level = static_cast<std::int32_t>(noise.state >> 20U) + 1;
            for (UInt32 k = 0; k < data->mNumberBuffers; ++k) {
                const AudioBuffer& buffer = data->mBuffers[k];
                for (UInt32 c = 0; c < buffer.mNumberChannels; ++c) {
                    const std::size_t at = std::size_t{i} * buffer.mNumberChannels + c;
                    if (isFloat) {
                        static_cast<float*>(buffer.mData)[at] =
                            static_cast<float>(level) / 32768.0F;
                    } else if (noise.format.mBitsPerChannel == 32) {
                        static_cast<std::int32_t*>(buffer.mData)[at] = level * 65536;
                    } else {
                        static_cast<std::int16_t*>(buffer.mData)[at] =
                            static_cast<std::int16_t>(level);
                    }
                }
            }
        }
        return noErr;
    }
    void change(AudioUnit unit, const AudioStreamBasicDescription& wanted) {
        check(AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                   &wanted, sizeof wanted));
        format = wanted;
    }
};

}  // namespace

void runHost(HostDevice& device) {
    const std::array formats{formatOf(kAudioFormatFlagIsSignedInteger, 16, 2, false),
                             formatOf(kAudioFormatFlagIsFloat, 32, 2, true),
                             formatOf(kAudioFormatFlagIsSignedInteger, 32, 1, false),
                             formatOf(kAudioFormatFlagIsFloat, 32, 2, false),
                             formatOf(kAudioFormatFlagIsSignedInteger, 16, 1, true)};
    Noise noise;
    AudioUnit unit = newOutputUnit();
    noise.change(unit, formats[0]);
    setCallback(unit, {Noise::render, &noise});
    check(AudioUnitInitialize(unit));
    check(AudioOutputUnitStart(unit));
    for (int round = 0; round < 3; ++round) {
        for (const AudioStreamBasicDescription& format : formats) {
            noise.change(unit, format);
            device.pump(4, 480);
            device.pump(3, 331);
        }
        check(AudioOutputUnitStop(unit));
        noise.change(unit, formats[static_cast<std::size_t>(round) + 1]);
        check(AudioOutputUnitStart(unit));
        device.pump(3);
    }
    // The longest stretch in one format, to look for in the recording.
    noise.change(unit, formats[1]);
    device.pump(40);
    check(AudioOutputUnitStop(unit));
    check(AudioUnitUninitialize(unit));
    check(AudioComponentInstanceDispose(unit));
}
