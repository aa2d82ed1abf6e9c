#include "AudioUnits.h"

#include <string>

#include "HostError.h"

namespace game {
namespace {

constexpr AudioUnitElement kLoudspeaker = 0;
constexpr AudioUnitElement kMicrophone = 1;

}  // namespace

void check(OSStatus status, const char* what) {
    if (status != noErr) {
        throw HostError(HostError::kAudio,
                        std::string(what) + " failed with status " + std::to_string(status));
    }
}

AudioComponentDescription componentDescription(OSType type, OSType subType) {
    AudioComponentDescription description{};
    description.componentType = type;
    description.componentSubType = subType;
    description.componentManufacturer = kAudioUnitManufacturer_Apple;
    return description;
}

AudioStreamBasicDescription floatFormat(double sampleRate, UInt32 channels) {
    AudioStreamBasicDescription format{};
    format.mSampleRate = sampleRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags =
        kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved;
    format.mChannelsPerFrame = channels;
    format.mBitsPerChannel = 32;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = sizeof(Float32);
    format.mBytesPerPacket = sizeof(Float32);
    return format;
}

AudioStreamBasicDescription shortFormat(double sampleRate, UInt32 channels) {
    AudioStreamBasicDescription format{};
    format.mSampleRate = sampleRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    format.mChannelsPerFrame = channels;
    format.mBitsPerChannel = 16;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = channels * static_cast<UInt32>(sizeof(SInt16));
    format.mBytesPerPacket = format.mBytesPerFrame;
    return format;
}

OutputUnit::OutputUnit(OSType subType) {
    const AudioComponentDescription description =
        componentDescription(kAudioUnitType_Output, subType);
    AudioComponent component = AudioComponentFindNext(nullptr, &description);
    if (component == nullptr) {
        throw HostError(HostError::kAudio, "no such output unit");
    }
    check(AudioComponentInstanceNew(component, &unit_), "AudioComponentInstanceNew");
}

OutputUnit::~OutputUnit() {
    AudioOutputUnitStop(unit_);
    AudioUnitUninitialize(unit_);
    AudioComponentInstanceDispose(unit_);
}

void OutputUnit::setOutputFormat(const AudioStreamBasicDescription& format) {
    check(AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                               kLoudspeaker, &format, sizeof format),
          "setting the stream format");
}

void OutputUnit::setRenderCallback(AURenderCallback callback, void* refCon) {
    const AURenderCallbackStruct record{callback, refCon};
    check(AudioUnitSetProperty(unit_, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                               kLoudspeaker, &record, sizeof record),
          "setting the render callback");
}

void OutputUnit::enableMicrophone(const AudioStreamBasicDescription& format,
                                  AURenderCallback callback, void* refCon) {
    const UInt32 on = 1;
    check(AudioUnitSetProperty(unit_, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input,
                               kMicrophone, &on, sizeof on),
          "enabling the microphone");
    check(AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                               kMicrophone, &format, sizeof format),
          "setting the microphone's format");
    const AURenderCallbackStruct record{callback, refCon};
    check(AudioUnitSetProperty(unit_, kAudioOutputUnitProperty_SetInputCallback,
                               kAudioUnitScope_Global, kLoudspeaker, &record, sizeof record),
          "setting the input callback");
}

void OutputUnit::initialize() {
    check(AudioUnitInitialize(unit_), "AudioUnitInitialize");
}

void OutputUnit::start() {
    check(AudioOutputUnitStart(unit_), "AudioOutputUnitStart");
}

void OutputUnit::stop() {
    check(AudioOutputUnitStop(unit_), "AudioOutputUnitStop");
}

}  // namespace game
