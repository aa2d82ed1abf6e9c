#include <TQAudioRecord/tq_capture.h>
#include <string.h>

int TQ_HEADER_TEST(void);

static void onMix(void* context, const struct tq_block* block) {
    *(uint32_t*)context += block->frames;
}

/* Uses something of each part, so that nothing that a header declares is left unseen. */
int TQ_HEADER_TEST(void) {
    struct tq_listener listener;
    struct tq_capture_state state;
    struct tq_unit_counts counts;
    struct tq_frames all;
    struct tq_ducking ducking;
    tq_listening* listening = NULL;
    uint32_t frames = 0;

    memset(&listener, 0, sizeof listener);
    listener.context = &frames;
    listener.on_mix = onMix;
    /* Its size is not set. */
    if (tq_capture_listen(&listener, &listening) != TQ_ERROR_SIZE || listening != NULL) {
        return 1;
    }
    state.size = sizeof state;
    counts.size = sizeof counts;
    all.size = sizeof all;
    ducking.size = sizeof ducking;
    if (tq_capture_get_state(&state) != TQ_OK || tq_capture_get_unit_counts(&counts) != TQ_OK ||
        tq_ducking_defaults(&ducking) != TQ_OK) {
        return 2;
    }
    if (tq_capture_get_frames(0, &all) != TQ_OK || all.rendered != 0 ||
        strcmp(tq_frame_loss_text(TQ_FRAMES_RING_FULL), "without room in the ring") != 0) {
        return 5;
    }
    if (tq_event_kind_of(TQ_EVENT_MIX_CHANGE, TQ_EVENT_UPDATE_POSTPONED) != TQ_EVENT_KIND_ROUTINE) {
        return 3;
    }
    return strlen(tq_event_text(TQ_EVENT_CAPTURE_START, TQ_EVENT_DONE)) > 0 ? 0 : 4;
}
