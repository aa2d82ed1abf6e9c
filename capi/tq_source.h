#ifndef TQ_SOURCE_H
#define TQ_SOURCE_H

/* For libraries that turn a native stream of sound into an audio unit, so that the capture library
 * records it: the bridges. A bridge is a host of the platform like any program. What it needs
 * beyond that stands here: a name for a unit, the library's gain for sound that is processed before
 * the unit renders it, words about streams that are not recorded, and the crash guard's notice.
 *
 * Threads, handles and structs as in tq_capture.h. */

#include "tq_capture.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tq_source tq_source;

/** The loudspeaker that a channel is meant for. */
enum tq_speaker {
    TQ_SPEAKER_UNKNOWN = 0,
    TQ_SPEAKER_FRONT_LEFT = 1,
    TQ_SPEAKER_FRONT_RIGHT = 2,
    TQ_SPEAKER_CENTER = 3,
    TQ_SPEAKER_SUBWOOFER = 4,
    TQ_SPEAKER_BACK_LEFT = 5,
    TQ_SPEAKER_BACK_RIGHT = 6,
    TQ_SPEAKER_BACK_CENTER = 7,
    TQ_SPEAKER_SIDE_LEFT = 8,
    TQ_SPEAKER_SIDE_RIGHT = 9,
    TQ_SPEAKER_FRONT_LEFT_OF_CENTER = 10,
    TQ_SPEAKER_FRONT_RIGHT_OF_CENTER = 11
};

/** What a bridge says of a unit of its own. */
struct tq_source_description {
    size_t size;
    /** The AudioUnit, initialised, with an interleaved stream format of native byte order. */
    void* unit;
    /** What tracks and blocks are called; UTF-8, copied, cut after 95 bytes. */
    const char* name;
    void* context;
    /** [render thread] Puts the sound that is really heard in place of the block that the unit's
     * callback has rendered, in the unit's format. Called for each block, whether the gain is on or
     * not; must neither wait nor allocate. Never null. */
    void (*replace_block)(void* context, void* samples, uint32_t frames);
};

/** [host thread] From now on the library leaves the gain of this unit to its owner. The unit's
 * capture object is held, and with it the track, until the source is closed; it has the levels of
 * ducking and compression that were set last. TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_NO_MEMORY,
 * TQ_ERROR_INSIDE_CALLBACK; TQ_ERROR_VALUE when the unit is not one that is captured. */
TQ_CAPTURE_EXPORT enum tq_result tq_source_open(const struct tq_source_description* description,
                                                tq_source** source);

/** [host thread] The gain alone, for sound that has no unit: nothing of it is captured, and ducking
 * and compression process it as they do a unit's, with the levels that are set now and later. Only
 * for tq_source_gain_is_on(), _begin(), _process() and _close(). TQ_ERROR_NULL, TQ_ERROR_NO_MEMORY,
 * TQ_ERROR_INSIDE_CALLBACK; TQ_ERROR_VALUE when the format is not of interleaved integers of 16 or
 * 32 bits or floats of 32, with 1 to 8 channels. */
TQ_CAPTURE_EXPORT enum tq_result tq_source_open_gain(const struct tq_format* format,
                                                     tq_source** source);

/** [host thread] Only while its unit does not run. Null is ignored. */
TQ_CAPTURE_EXPORT void tq_source_close(tq_source* source);

/** [host thread] The unit stands for another stream from its next start on, which makes it another
 * track to whoever listens when the name differs. TQ_ERROR_NULL, TQ_ERROR_NO_MEMORY,
 * TQ_ERROR_INSIDE_CALLBACK; TQ_ERROR_VALUE for one without a unit. */
TQ_CAPTURE_EXPORT enum tq_result tq_source_rename(tq_source* source, const char* name);

/** [host thread] Which loudspeakers the unit's channels are meant for, from its next start on, so
 * that the mix folds more than two channels down: the middle goes to both sides and what is beside
 * or behind to its side, 3 dB lower each, the subwoofer nowhere. Without, or where no channel is
 * front left or none front right, the mix has the first two channels. `count` is at most 8, and 0
 * takes it back. TQ_ERROR_NULL, TQ_ERROR_VALUE, TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_source_set_speakers(tq_source* source,
                                                        const enum tq_speaker* speakers,
                                                        size_t count);

/** [any thread] [real-time safe] Not 0 while what the program plays has to go through
 * tq_source_process(). */
TQ_CAPTURE_EXPORT int tq_source_gain_is_on(const tq_source* source);

/** [any thread] [real-time safe once warm] Another stream's sound is to be processed from here on:
 * where ducking stands it has that level from its first frame and does not slide there. On the
 * thread of tq_source_process(). Null is ignored. */
TQ_CAPTURE_EXPORT void tq_source_begin(tq_source* source);

/** [any thread] [real-time safe once warm] Ducking and compression, in place, of the next `frames`
 * in the unit's format. One thread at a time, in the order of the stream. */
TQ_CAPTURE_EXPORT void tq_source_process(tq_source* source, void* samples, uint32_t frames);

/** [any thread] [real-time safe] Stand around code of a bridge that runs on a thread of the
 * program: a process that dies inside starts next time without hooks. Never around the native
 * library's own code. They nest. */
TQ_CAPTURE_EXPORT void tq_guard_enter(void);
TQ_CAPTURE_EXPORT void tq_guard_leave(void);

/** [any thread] Tells every listener's on_stream, and raises an event where the stream is not
 * recorded. What `stream` points to is copied by whoever keeps it. TQ_ERROR_NULL, TQ_ERROR_SIZE,
 * TQ_ERROR_NO_MEMORY. */
TQ_CAPTURE_EXPORT enum tq_result tq_stream_report(const struct tq_stream* stream);

#ifdef __cplusplus
}
#endif

#endif
