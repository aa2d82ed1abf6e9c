#include "Music.h"

#include <utility>

namespace game {

Music::Music(Clip<float> clip) : clip_(std::move(clip)), unit_(kAudioUnitSubType_RemoteIO) {
    unit_.setOutputFormat(floatFormat(kSampleRate, kChannels));
    unit_.setRenderCallback(&Music::render, this);
    unit_.initialize();
}

void Music::start() {
    unit_.start();
}

void Music::stop() {
    unit_.stop();
}

OSStatus Music::render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                       const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                       AudioBufferList* data) noexcept {
    Music& self = *static_cast<Music*>(refCon);
    constexpr float kGain = 0.6F;  // leaves room for the effects
    for (UInt32 frame = 0; frame < frames; ++frame) {
        for (UInt32 channel = 0; channel < data->mNumberBuffers; ++channel) {
            const float sample =
                self.clip_.samples[self.position_ * self.clip_.channels + channel % kChannels];
            static_cast<float*>(data->mBuffers[channel].mData)[frame] = kGain * sample;
        }
        self.position_ = (self.position_ + 1) % self.clip_.frames();
    }
    return noErr;
}

}  // namespace game
