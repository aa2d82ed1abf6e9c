/* Preloaded into a driver: arms its crash guard, or records the first track from before the back
 * end's first call to behind its last. */

#include <TQAudioRecord/tq_capture.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kRoom = 1 << 22, kGuardId = 1 };

/* Written on the thread that pumps, read behind tq_capture_stop(). */
static struct Recording {
    tq_listening* listening;
    int16_t samples[kRoom]; /* interleaved */
    size_t count;
    size_t oddBlocks; /* of another size or format than can be kept */
} recording;

/* Units of 32-bit integers are taken for the phone's former mixer format, 24 bits behind the point.
 */
static int16_t sampleAt(const struct tq_buffer* buffer, const struct tq_format* format,
                        uint32_t at) {
    if (buffer->data == NULL) {
        return 0;
    }
    return format->bits_per_channel == 16 ? ((const int16_t*)buffer->data)[at]
                                          : (int16_t)(((const int32_t*)buffer->data)[at] / 512);
}

static void onTrack(void* context, const struct tq_block* block) {
    struct Recording* const to = context;
    const uint32_t channels = block->format.channels;
    if (block->track != 1 || block->format.is_float ||
        (block->format.bits_per_channel != 16 && block->format.bits_per_channel != 32) ||
        block->frames * channels > kRoom - to->count) {
        ++to->oddBlocks;
        return;
    }
    for (uint32_t i = 0; i < block->frames; ++i) {
        for (uint32_t k = 0; k < channels; ++k) {
            const struct tq_buffer* const buffer =
                &block->buffers[block->format.is_interleaved ? 0 : k];
            const uint32_t at = block->format.is_interleaved ? i * channels + k : i;
            to->samples[to->count++] = sampleAt(buffer, &block->format, at);
        }
    }
}

static void printLeftOut(void* context, const struct tq_unit* unit) {
    (void)context;
    if (unit->reason != TQ_UNIT_CAPTURED && unit->reason != TQ_UNIT_NOT_STARTED) {
        fprintf(stderr, "%s: %s\n", unit->name, tq_unit_reason_text(unit->reason));
    }
}

__attribute__((visibility("default"))) int hostsArm(void) {
    return tq_guard_arm(kGuardId) != TQ_OK;
}

__attribute__((visibility("default"))) int hostsRecord(void) {
    struct tq_capture_state state = {0};
    struct tq_listener listener = {0};
    state.size = sizeof state;
    if (tq_capture_get_state(&state) != TQ_OK || !state.self_test_passed) {
        fputs("the hooks are not installed\n", stderr);
        return 1;
    }
    listener.size = sizeof listener;
    listener.context = &recording;
    listener.on_track = onTrack;
    return tq_capture_listen(&listener, &recording.listening) != TQ_OK ||
           tq_capture_settle() != TQ_OK;
}

__attribute__((visibility("default"))) int hostsStop(void) {
    const char* const folder = getenv("HOSTS_FOLDER");
    char path[4096];
    FILE* file = NULL;
    if (tq_capture_stop(recording.listening) != TQ_OK || recording.oddBlocks != 0) {
        fprintf(stderr, "%lu blocks of an unexpected format\n", (unsigned long)recording.oddBlocks);
        return 1;
    }
    if (recording.count == 0) {
        tq_capture_units(printLeftOut, NULL);
    }
    snprintf(path, sizeof path, "%s/recorded", folder == NULL ? "." : folder);
    file = fopen(path, "wb");
    if (file == NULL) {
        return 1;
    }
    const size_t written =
        fwrite(recording.samples, sizeof recording.samples[0], recording.count, file);
    return fclose(file) != 0 || written != recording.count;
}
