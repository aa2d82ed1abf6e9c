#include "unit/ConvertedInput.h"

#include <algorithm>
#include <cmath>

namespace tqplatform {

using tqcommon::AudioView;

ConvertedInput::ConvertedInput(const PCMFormat& format, Float64 rate, UInt32 channels,
                               UInt32 maximumFrames)
    : innerRate_(format.sampleRate),
      rate_(rate),
      channels_(channels),
      innerChannels_(std::min(channels, format.channels)),
      reader_(format, innerChannels_, maximumFrames),
      converter_(format.sampleRate, rate, innerChannels_, maximumFrames),
      planes_(innerChannels_ == channels ? 0 : innerChannels_, maximumFrames) {
}

OSStatus ConvertedInput::read(const BusPull& pull, const AudioView& planes) noexcept {
    const bool goesOn = started_ && pull.time.mSampleTime == nextOutputTime_;
    if (innerRate_ == rate_) {
        nextSampleTime_ = pull.time.mSampleTime;
    } else if (!goesOn) {
        nextSampleTime_ = std::round(pull.time.mSampleTime * innerRate_ / rate_);
    }
    started_ = true;
    nextOutputTime_ = pull.time.mSampleTime + planes.frames();
    pull_ = &pull;
    const bool direct = innerChannels_ == channels_;
    const AudioView inner = direct ? planes : planes_.view(planes.frames());
    const OSStatus status = converter_.pull(inner, pullBus, this);
    if (!direct) {
        mapChannels(inner, planes);
    }
    pull_ = nullptr;
    return status;
}

OSStatus ConvertedInput::pullBus(void* context, const AudioView& planes) {
    auto& self = *static_cast<ConvertedInput*>(context);
    AudioTimeStamp time = self.pull_->time;
    time.mSampleTime = self.nextSampleTime_;
    self.nextSampleTime_ += planes.frames();
    AudioUnitRenderActionFlags flags = self.pull_->flags;
    const BusPull pull{self.pull_->source, self.pull_->allocate, self.pull_->bus, flags, time};
    const OSStatus status = self.reader_.read(pull, planes);
    // Behind a converter silent input does not mean silent output: its filter still sounds.
    const bool isPassedOn = self.innerRate_ == self.rate_;
    self.pull_->flags =
        isPassedOn ? flags
                   : flags & ~AudioUnitRenderActionFlags{kAudioUnitRenderAction_OutputIsSilence};
    return status;
}

void ConvertedInput::restart() noexcept {
    converter_.reset();
    started_ = false;
}

bool ConvertedInput::fits(const PCMFormat& format, Float64 rate, UInt32 channels,
                          UInt32 maximumFrames) const noexcept {
    return rate_ == rate && channels_ == channels &&
           reader_.fits(format, std::min(channels, format.channels), maximumFrames);
}

}  // namespace tqplatform
