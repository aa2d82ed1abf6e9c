#include "ToneHost.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace {

void check(OSStatus status, const char* what) {
    if (status != 0) {
        throw std::runtime_error(std::string(what) + " answered " + std::to_string(status));
    }
}

std::int16_t truncated(float sample) {
    const float scaled = sample * 32767.0F;
    return static_cast<std::int16_t>(std::clamp(scaled, -32767.0F, 32767.0F));
}

}  // namespace

AudioUnit newOutputUnit(OSType subType) {
    const AudioComponentDescription wanted{kAudioUnitType_Output, subType,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioUnit unit = nullptr;
    check(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &wanted), &unit),
          "AudioComponentInstanceNew");
    return unit;
}

AudioStreamBasicDescription describe(const ToneHost::Format& format) {
    AudioStreamBasicDescription desc{};
    const UInt32 bytes = format.isFloat ? 4 : 2;
    desc.mSampleRate = format.sampleRate;
    desc.mFormatID = kAudioFormatLinearPCM;
    desc.mFormatFlags = kAudioFormatFlagIsPacked;
    desc.mFormatFlags |= format.isFloat ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger;
    if (!format.isInterleaved) {
        desc.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
    }
    desc.mChannelsPerFrame = format.channels;
    desc.mBitsPerChannel = bytes * 8;
    desc.mFramesPerPacket = 1;
    desc.mBytesPerFrame = format.isInterleaved ? bytes * format.channels : bytes;
    desc.mBytesPerPacket = desc.mBytesPerFrame;
    return desc;
}

ToneHost::ToneHost(const Format& format, double frequency, double amplitude, OSType subType)
    : format_(format),
      frequency_(frequency),
      amplitude_(amplitude),
      unit_(newOutputUnit(subType)),
      rendered_(format.channels) {
    const AudioStreamBasicDescription desc = describe(format);
    check(AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                               &desc, sizeof(desc)),
          "stream format");
    const AURenderCallbackStruct callback{render, this};
    check(AudioUnitSetProperty(unit_, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                               0, &callback, sizeof(callback)),
          "render callback");
    check(AudioUnitInitialize(unit_), "AudioUnitInitialize");
}

ToneHost::~ToneHost() {
    dispose();
}

void ToneHost::start() {
    check(AudioOutputUnitStart(unit_), "AudioOutputUnitStart");
}

void ToneHost::stop() {
    check(AudioOutputUnitStop(unit_), "AudioOutputUnitStop");
}

void ToneHost::dispose() {
    if (unit_ != nullptr) {
        AudioOutputUnitStop(unit_);
        AudioUnitUninitialize(unit_);
        AudioComponentInstanceDispose(unit_);
        unit_ = nullptr;
    }
}

OSStatus ToneHost::render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                          const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 frames,
                          AudioBufferList* ioData) {
    auto& host = *static_cast<ToneHost*>(refCon);
    ++host.callbacks_;
    const unsigned channels = host.format_.channels;
    for (UInt32 i = 0; i < frames; ++i) {
        const double phase = 2 * std::numbers::pi * host.frequency_ *
                             static_cast<double>(host.frame_++) / host.format_.sampleRate;
        const double value = host.amplitude_ * std::sin(phase);
        for (unsigned channel = 0; channel < channels; ++channel) {
            const UInt32 buffer = host.format_.isInterleaved ? 0 : channel;
            const UInt32 at = host.format_.isInterleaved ? i * channels + channel : i;
            void* const data = ioData->mBuffers[buffer].mData;
            if (host.format_.isFloat) {
                const auto sample = static_cast<float>(value);
                static_cast<float*>(data)[at] = sample;
                host.rendered_[channel].push_back(truncated(sample));
            } else {
                const auto sample = static_cast<std::int16_t>(std::lround(value * 32767));
                static_cast<std::int16_t*>(data)[at] = sample;
                host.rendered_[channel].push_back(sample);
            }
        }
    }
    return 0;
}
