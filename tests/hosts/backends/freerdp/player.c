#define _GNU_SOURCE

#include "rdpsnd_main.h"

#include <sys/mman.h>
#include <unistd.h>

#include "Player.h"
#include "TPCircularBuffer.h"

/* The back end's ring is mapped twice in a row, so that a read never has to be split. */

bool TPCircularBufferInit(TPCircularBuffer* buffer, int32_t length) {
    const int file = memfd_create("ring", 0);
    const int both = PROT_READ | PROT_WRITE;
    char* const room =
        mmap(NULL, 2 * (size_t)length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (file < 0 || ftruncate(file, length) != 0 || room == MAP_FAILED ||
        mmap(room, (size_t)length, both, MAP_SHARED | MAP_FIXED, file, 0) == MAP_FAILED ||
        mmap(room + length, (size_t)length, both, MAP_SHARED | MAP_FIXED, file, 0) == MAP_FAILED) {
        return false;
    }
    close(file);
    *buffer = (TPCircularBuffer){.buffer = room, .length = length};
    return true;
}

void TPCircularBufferCleanup(TPCircularBuffer* buffer) {
    munmap(buffer->buffer, 2 * (size_t)buffer->length);
}

void TPCircularBufferClear(TPCircularBuffer* buffer) {
    buffer->head = buffer->tail = buffer->fillCount = 0;
}

UINT freerdp_rdpsnd_client_subsystem_entry(PFREERDP_RDPSND_DEVICE_ENTRY_POINTS points);

static void keep(void* rdpsnd, rdpsndDevicePlugin* device) {
    *(rdpsndDevicePlugin**)rdpsnd = device;
}

void play(void) {
    rdpsndDevicePlugin* device = NULL;
    AUDIO_FORMAT format = {WAVE_FORMAT_PCM, kPlayerChannels, kPlayerRate, 16};
    int16_t frames[kPlayerSlice * kPlayerChannels];
    __typeof__(*(PFREERDP_RDPSND_DEVICE_ENTRY_POINTS)NULL) points = {&device, keep};
    if (freerdp_rdpsnd_client_subsystem_entry(&points) != CHANNEL_RC_OK ||
        !device->FormatSupported(device, &format) || !device->Open(device, &format, 0)) {
        playerFailed("open");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        nextFrames(frames, kPlayerSlice);
        device->Play(device, (BYTE*)frames, sizeof frames);
        pumpSlice();
    }
    device->Free(device);
}
