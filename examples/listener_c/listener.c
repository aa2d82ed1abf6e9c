/* A listener in C. Preload it into a host:
 *
 *     LISTENER_WAV=mix.wav LD_PRELOAD=liblistener_c.so ./game
 *
 * It keeps the first minute of the mix and writes it as a WAV file when the host ends, with a line
 * for each track and each unit that was left out. In a host whose crash guard has never been asked
 * it asks for the hooks instead: from the next launch on they are there. */

#include <TQAudioRecord/tq_capture.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kTracks = 8, kChannels = 2, kRate = 44100, kSeconds = 60, kGuardId = 0x43 };

/* Written on a render thread while listening, read behind tq_capture_stop(), which waits for it. */
static struct Recording {
    tq_listening* listening;
    int16_t* samples; /* made beforehand: a render thread must not allocate */
    size_t room;      /* samples */
    size_t count;
    uint64_t trackFrames[kTracks];
    char trackNames[kTracks][24];
} recording;

static void onMix(void* context, const struct tq_block* block) {
    struct Recording* const to = context;
    const size_t samples = (size_t)block->frames * kChannels;
    if (block->buffer_count == 1 && block->buffers[0].data != NULL &&
        samples <= to->room - to->count) {
        memcpy(to->samples + to->count, block->buffers[0].data, samples * sizeof *to->samples);
        to->count += samples;
    }
}

static void onTrack(void* context, const struct tq_block* block) {
    struct Recording* const to = context;
    if (block->track < kTracks) {
        to->trackFrames[block->track] += block->frames;
        strncpy(to->trackNames[block->track], block->name, sizeof to->trackNames[0] - 1);
    }
}

static void onEvent(void* context, const struct tq_event* event) {
    (void)context;
    if (tq_event_kind_of(event->category, event->code) == TQ_EVENT_KIND_FAILURE) {
        fprintf(stderr, "listener: %s\n", tq_event_text(event->category, event->code));
    }
}

static void printLeftOut(void* context, const struct tq_unit* unit) {
    (void)context;
    if (unit->reason != TQ_UNIT_CAPTURED && unit->reason != TQ_UNIT_NOT_STARTED &&
        unit->reason != TQ_UNIT_UNINITIALISED) {
        fprintf(stderr, "listener: %s left out: %s\n", unit->name,
                tq_unit_reason_text(unit->reason));
    }
}

/* Little-endian, whatever the machine is. */
static void put(FILE* file, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        fputc((int)(value >> (8 * i) & 0xFFU), file);
    }
}

static int writeWav(const char* path, const int16_t* samples, size_t count) {
    FILE* const file = fopen(path, "wb");
    const uint32_t bytes = (uint32_t)(count * sizeof *samples);
    if (file == NULL) {
        return 0;
    }
    fputs("RIFF", file);
    put(file, 36 + bytes, 4);
    fputs("WAVEfmt ", file);
    put(file, 16, 4);
    put(file, 1, 2);
    put(file, kChannels, 2);
    put(file, kRate, 4);
    put(file, kRate * kChannels * 2, 4);
    put(file, kChannels * 2, 2);
    put(file, 16, 2);
    fputs("data", file);
    put(file, bytes, 4);
    for (size_t i = 0; i < count; ++i) {
        put(file, (uint16_t)samples[i], 2);
    }
    const int failed = ferror(file);
    return fclose(file) == 0 && !failed;
}

/* Not armed: says why, and asks for the hooks if nobody has decided yet. */
static void tellGuard(void) {
    struct tq_guard_state guard = {0};
    guard.size = sizeof guard;
    if (tq_guard_get_state(&guard) != TQ_OK) {
        return;
    }
    fprintf(stderr, "listener: nothing is recorded: %s\n", tq_guard_reason_text(guard.this_launch));
    if (guard.next_launch == TQ_GUARD_NEVER_ENABLED && tq_guard_arm(kGuardId) == TQ_OK) {
        fprintf(stderr, "listener: the next launch will be\n");
    }
}

__attribute__((constructor)) static void begin(void) {
    struct tq_capture_state state = {0};
    struct tq_listener listener = {0};
    enum tq_result result;
    state.size = sizeof state;
    if (tq_capture_get_state(&state) != TQ_OK || !state.self_test_passed) {
        tellGuard();
        return;
    }
    recording.room = (size_t)kRate * kChannels * kSeconds;
    recording.samples = calloc(recording.room, sizeof *recording.samples);
    if (recording.samples == NULL) {
        return;
    }
    listener.size = sizeof listener;
    listener.context = &recording;
    listener.on_mix = onMix;
    listener.on_track = onTrack;
    listener.on_event = onEvent;
    result = tq_capture_listen(&listener, &recording.listening);
    if (result != TQ_OK) {
        fprintf(stderr, "listener: %s\n", tq_result_text(result));
    }
}

__attribute__((destructor)) static void end(void) {
    const char* const path = getenv("LISTENER_WAV");
    if (recording.listening == NULL) {
        return;
    }
    tq_capture_units(printLeftOut, NULL);
    tq_capture_stop(recording.listening);
    fprintf(stderr, "listener: %lu frames of mix\n", (unsigned long)(recording.count / kChannels));
    for (int track = 1; track < kTracks; ++track) {
        if (recording.trackFrames[track] > 0) {
            fprintf(stderr, "listener: %lu frames of track %d, %s\n",
                    (unsigned long)recording.trackFrames[track], track,
                    recording.trackNames[track]);
        }
    }
    if (path != NULL && !writeWav(path, recording.samples, recording.count)) {
        fprintf(stderr, "listener: %s could not be written\n", path);
    }
    free(recording.samples);
}
