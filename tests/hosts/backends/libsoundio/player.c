#include <soundio/soundio.h>

#include "Player.h"

static void writeFrames(struct SoundIoOutStream* stream, int atLeast, int atMost) {
    struct SoundIoChannelArea* areas = NULL;
    (void)atLeast;
    if (soundio_outstream_begin_write(stream, &areas, &atMost) != 0) {
        playerFailed("begin_write");
    }
    for (int i = 0; i < atMost; ++i) {
        float frame[kPlayerChannels];
        nextFloatFrames(frame, 1);
        for (int channel = 0; channel < kPlayerChannels; ++channel) {
            *(float*)(areas[channel].ptr + areas[channel].step * i) = frame[channel];
        }
    }
    soundio_outstream_end_write(stream);
}

void play(void) {
    struct SoundIo* const soundio = soundio_create();
    if (soundio_connect_backend(soundio, SoundIoBackendCoreAudio) != 0) {
        playerFailed("connect");
    }
    soundio_flush_events(soundio);
    struct SoundIoDevice* const device =
        soundio_get_output_device(soundio, soundio_default_output_device_index(soundio));
    struct SoundIoOutStream* const stream = soundio_outstream_create(device);
    stream->format = SoundIoFormatFloat32NE;
    stream->sample_rate = kPlayerRate;
    stream->layout = *soundio_channel_layout_get_default(kPlayerChannels);
    stream->write_callback = writeFrames;
    if (soundio_outstream_open(stream) != 0 || soundio_outstream_start(stream) != 0) {
        playerFailed("start");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    soundio_outstream_destroy(stream);
    soundio_device_unref(device);
    /* Its end is left to the process: a thread that looks for devices misses the call to end when
     * it comes this early. */
}
