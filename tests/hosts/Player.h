#pragma once

/* What a back end of another program is driven by. The folder of each back end under backends/ has
 * a player.c or player.cpp that stands in for the program around it and defines play(); Driver.cpp
 * offers the rest. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    kPlayerRate = 44100,
    kPlayerChannels = 2,
    kPlayerSlice = 441,
    kPlayerSlices = 200,
    kPlayerMostFrames = 512
};

/** The next frames of the program's sound: stereo noise that never repeats, 16 bits, interleaved.
 * What is taken here must come out of the device and be recorded. */
void nextFrames(int16_t* to, unsigned frames);
/** The same as 32-bit floats, exactly sample / 32768. */
void nextFloatFrames(float* to, unsigned frames);

/** The next frame with the same sample on both channels. */
int16_t nextMonoFrame(void);

/** Ends the run with a message: the back end refused something. */
void playerFailed(const char* what);

/** Lets the device play one slice. Back ends that wait until the device has taken something wait by
 * this. */
void pumpSlice(void);

/** Opens the back end, plays kPlayerSlices slices through it and closes it, as its program would.
 */
void play(void);

#ifdef __cplusplus
}
#endif
