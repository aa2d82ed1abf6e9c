#pragma once

#include <AudioToolbox/AudioToolbox.h>

// An output unit of the platform, as hosts of tests and benchmarks make one.

namespace tqtest {

/// 32-bit floats, interleaved.
inline AudioStreamBasicDescription floatFormat(Float64 sampleRate, UInt32 channels) {
    AudioStreamBasicDescription format{};
    format.mSampleRate = sampleRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = static_cast<AudioFormatFlags>(kAudioFormatFlagIsFloat) |
                          static_cast<AudioFormatFlags>(kAudioFormatFlagIsPacked);
    format.mFramesPerPacket = 1;
    format.mChannelsPerFrame = channels;
    format.mBitsPerChannel = 32;
    format.mBytesPerFrame = format.mBytesPerPacket = 4 * channels;
    return format;
}

/// What is called in the unit's slices; null for what it does not do.
struct OutputUnitCalls {
    AURenderCallback play = nullptr;
    AURenderCallback hear = nullptr;  ///< switches the microphone on
    void* refCon = nullptr;
};

/// Initialised and not started; null when the platform refused one of the steps.
inline AudioUnit makeOutputUnit(const AudioStreamBasicDescription& format,
                                const OutputUnitCalls& calls) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    OSStatus status = AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit);
    const auto set = [&](AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                         const auto& value) {
        if (status == noErr) {
            status = AudioUnitSetProperty(unit, id, scope, element, &value, sizeof value);
        }
    };
    if (calls.play != nullptr) {
        set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, format);
        set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
            AURenderCallbackStruct{calls.play, calls.refCon});
    }
    if (calls.hear != nullptr) {
        set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1});
        set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1, format);
        set(kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0,
            AURenderCallbackStruct{calls.hear, calls.refCon});
    }
    if (status == noErr) {
        status = AudioUnitInitialize(unit);
    }
    return status == noErr ? unit : nullptr;
}

/// In the callback that hears: what was heard, into `samples`, which hold `frames` of the format.
inline OSStatus fetchHeard(AudioUnit unit, AudioUnitRenderActionFlags* flags,
                           const AudioTimeStamp* time, UInt32 bus, UInt32 frames, UInt32 channels,
                           float* samples) {
    AudioBufferList list{};
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {channels, frames * channels * UInt32{sizeof(float)}, samples};
    return AudioUnitRender(unit, flags, time, bus, frames, &list);
}

}  // namespace tqtest
