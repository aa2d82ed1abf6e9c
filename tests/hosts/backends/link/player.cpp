#include "Player.h"

#include "AudioPlatform_CoreAudio.hpp"

namespace ableton::linkaudio {

AudioEngine::AudioEngine(Link& link) : mLink(link), mSampleRate(0) {
}

void AudioEngine::setBufferSize(std::size_t size) {
    mBuffer.assign(size, 0);
}

/// The back end plays one signal on both channels and makes 16-bit samples of it by cutting off.
void AudioEngine::audioCallback(std::chrono::microseconds /*hostTime*/, std::size_t frames) {
    for (std::size_t i = 0; i < frames; ++i) {
        const int sample = nextMonoFrame();
        mBuffer[i] = (sample + (sample < 0 ? -0.5 : 0.5)) / 32761;
    }
}

}  // namespace ableton::linkaudio

void play() {
    ableton::Link session;
    ableton::linkaudio::AudioPlatform platform(session);
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
}
