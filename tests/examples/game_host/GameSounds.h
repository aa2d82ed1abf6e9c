#pragma once

#include "tools/picture/TestWave.h"

namespace tqtest {

/// Tones under the names of the game's sounds. True when all were written.
inline bool makeGameSounds(const TemporaryFolder& folder) {
    using tqpicture::test::sine;
    bool made = true;
    const auto make = [&](const char* name, double hertz, std::size_t frames) {
        made =
            tqpicture::test::writeWave(folder.file(name), sine(hertz, 22050, frames, 0.3), 22050) &&
            made;
    };
    // Whole numbers of waves: the looped ones go on without a click.
    make("music_game.wav", 441, 22050);
    make("Noise.wav", 882, 22050);
    make("Front_Center.wav", 3150, 22050);
    for (const char* name :
         {"exploBig.wav", "exploPop.wav", "power.wav", "bell.oga", "complete.oga"}) {
        make(name, 1764, 4000);
    }
    return made;
}

}  // namespace tqtest
