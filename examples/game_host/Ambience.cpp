#include "Ambience.h"

namespace game {

Ambience::Ambience(const Clip<SInt16>& clip) : clip_(clip), unit_(kAudioUnitSubType_RemoteIO) {
    unit_.setOutputFormat(shortFormat(kSampleRate, kChannels));
    unit_.setRenderCallback(&Ambience::render, this);
    unit_.initialize();
    unit_.start();
}

OSStatus Ambience::render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                          const AudioTimeStamp* /*time*/, UInt32 /*bus*/, UInt32 frames,
                          AudioBufferList* data) noexcept {
    Ambience& self = *static_cast<Ambience*>(refCon);
    auto* out = static_cast<SInt16*>(data->mBuffers[0].mData);
    for (UInt32 frame = 0; frame < frames; ++frame) {
        out[frame] = self.clip_.samples[self.position_];
        self.position_ = (self.position_ + 1) % self.clip_.frames();
    }
    return noErr;
}

}  // namespace game
