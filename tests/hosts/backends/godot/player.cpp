#include "Player.h"

#include "drivers/coreaudio/audio_driver_coreaudio.h"

/// The engine mixes in 32 bits, of which the back end takes the upper half.
void AudioDriver::audio_server_process(int frames, int32_t* to) {
    std::vector<int16_t> next(static_cast<std::size_t>(frames) * kPlayerChannels);
    nextFrames(next.data(), static_cast<unsigned>(frames));
    for (const int16_t sample : next) {
        *to++ = sample * 65536;
    }
}

void play() {
    AudioDriverCoreAudio driver;
    if (driver.init() != OK) {
        playerFailed("init");
    }
    driver.start();
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    driver.finish();
}
