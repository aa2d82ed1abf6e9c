#include <stdio.h>

#include <ao/ao.h>
#include <ao/ao_private.h>
#include <ao/plugin.h>

#include "Player.h"

int ao_is_big_endian(void) {
    return 0;
}

/* The back end waits for room until its callback has taken something. */
int waitForDevice(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    (void)condition;
    pthread_mutex_unlock(mutex);
    pumpSlice();
    return pthread_mutex_lock(mutex);
}

void play(void) {
    static ao_device device;
    ao_sample_format format = {16, kPlayerRate, kPlayerChannels, AO_FMT_NATIVE, NULL};
    int16_t frames[kPlayerSlice * kPlayerChannels];
    device.output_channels = kPlayerChannels;
    if (!ao_plugin_device_init(&device) || !ao_plugin_open(&device, &format)) {
        playerFailed("open");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        nextFrames(frames, kPlayerSlice);
        if (!ao_plugin_play(&device, (const char*)frames, sizeof frames)) {
            playerFailed("play");
        }
    }
    if (!ao_plugin_close(&device)) {
        playerFailed("close");
    }
    ao_plugin_device_clear(&device);
}
