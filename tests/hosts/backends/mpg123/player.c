#include "out123_int.h"

#include "Player.h"

extern mpg123_module_t mpg123_output_module_info;

/* The back end sleeps until the device has taken something. */
int waitForDevice(unsigned microseconds) {
    (void)microseconds;
    pumpSlice();
    return 0;
}

void play(void) {
    struct out123_struct output = {.rate = kPlayerRate,
                                   .channels = kPlayerChannels,
                                   .format = MPG123_ENC_SIGNED_16,
                                   .framesize = 2 * kPlayerChannels};
    int16_t frames[kPlayerSlice * kPlayerChannels];
    if (mpg123_output_module_info.init_output(&output) != 0 || output.open(&output) != 0) {
        playerFailed("open");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        nextFrames(frames, kPlayerSlice);
        if (output.write(&output, (unsigned char*)frames, sizeof frames) != sizeof frames) {
            playerFailed("write");
        }
    }
    output.close(&output);
    output.deinit(&output);
}
