#include "bridges/core/BridgeUnit.h"

#include <TQPlatform/HushedOutput.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace tq::bridges {
namespace {

AudioStreamBasicDescription descriptionOf(const NativeFormat& format) {
    AudioStreamBasicDescription description{};
    const UnitSample sample = unitSampleOf(format.sample);
    description.mSampleRate = format.sampleRate;
    description.mFormatID = kAudioFormatLinearPCM;
    description.mFormatFlags =
        static_cast<AudioFormatFlags>(kAudioFormatFlagIsPacked) |
        static_cast<AudioFormatFlags>(sample == UnitSample::kF32 ? kAudioFormatFlagIsFloat
                                                                 : kAudioFormatFlagIsSignedInteger);
    description.mFramesPerPacket = 1;
    description.mChannelsPerFrame = format.channels;
    description.mBitsPerChannel = 8 * bytesPerSample(sample);
    description.mBytesPerFrame = format.unitBytesPerFrame();
    description.mBytesPerPacket = description.mBytesPerFrame;
    return description;
}

}  // namespace

std::unique_ptr<BridgeUnit> BridgeUnit::make() {
    const AudioComponentDescription wanted{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                           kAudioUnitManufacturer_Apple, 0, 0};
    AudioComponent component = AudioComponentFindNext(nullptr, &wanted);
    std::unique_ptr<BridgeUnit> made(new BridgeUnit);
    if (component == nullptr || AudioComponentInstanceNew(component, &made->unit_) != 0) {
        return nullptr;
    }
    // The native library plays the stream; here it is only taken.
    TQHushOutputUnit(made->unit_);
    const AURenderCallbackStruct callback{&render, made.get()};
    if (AudioUnitSetProperty(made->unit_, kAudioUnitProperty_SetRenderCallback,
                             kAudioUnitScope_Input, 0, &callback, sizeof callback) != 0 ||
        AudioUnitInitialize(made->unit_) != 0) {
        return nullptr;
    }
    return made;
}

BridgeUnit::~BridgeUnit() {
    if (unit_ != nullptr) {
        stop();
        tq_source_close(source_);
        AudioUnitUninitialize(unit_);
        AudioComponentInstanceDispose(unit_);
    }
}

bool BridgeUnit::setFormat(const NativeFormat& format) {
    const AudioStreamBasicDescription description = descriptionOf(format);
    return AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                &description, sizeof description) == 0;
}

bool BridgeUnit::take(const NativeFormat& format, const std::string& name, BlockFeeder& feeder) {
    if ((source_ == nullptr || format != format_) && !setFormat(format)) {
        return false;
    }
    format_ = format;
    name_ = name;
    feeder_ = &feeder;
    const tq_source_description description{sizeof description, unit_, name.c_str(), this,
                                            &replace};
    const tq_result result = source_ != nullptr ? tq_source_rename(source_, name.c_str())
                                                : tq_source_open(&description, &source_);
    std::array<tq_speaker, 8> speakers{};
    std::transform(format.speakers.begin(), format.speakers.end(), speakers.begin(),
                   [](std::uint8_t speaker) { return static_cast<tq_speaker>(speaker); });
    return result == TQ_OK &&
           tq_source_set_speakers(source_, speakers.data(), format.channels) == TQ_OK;
}

void BridgeUnit::start() {
    isRunning_ = isRunning_ || AudioOutputUnitStart(unit_) == 0;
}

void BridgeUnit::stop() {
    if (isRunning_) {
        AudioOutputUnitStop(unit_);
        isRunning_ = false;
    }
}

OSStatus BridgeUnit::render(void* unit, AudioUnitRenderActionFlags* /*flags*/,
                            const AudioTimeStamp* time, UInt32 /*bus*/, UInt32 frames,
                            AudioBufferList* ioData) {
    auto& self = *static_cast<BridgeUnit*>(unit);
    self.feeder_->feed(ioData->mBuffers[0].mData, frames, time->mHostTime);
    return 0;
}

void BridgeUnit::replace(void* unit, void* samples, std::uint32_t frames) {
    static_cast<BridgeUnit*>(unit)->feeder_->replaceByHeard(samples, frames);
}

}  // namespace tq::bridges
