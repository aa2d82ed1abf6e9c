#ifndef TQ_EVENTS_H
#define TQ_EVENTS_H

/* What the library tells its listeners about itself, as numbers with names and as sentences.
 *
 * An event is a pair of a category and a code, with a message for a log. The pair says what
 * happened: a code alone does not, 109 means one thing at a write and another at a read. The
 * message holds handles and sizes and is made for searching; tq_event_text() is made for reading.
 *
 * For C99 and C++. Nothing here needs the library: a program that only reads recorded events
 * includes this header and links nothing. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Where in the library an event comes from. */
enum tq_event_category {
    TQ_EVENT_CAPTURE_START = 0, /**< capture as a whole starts */
    TQ_EVENT_MIX_CHANGE = 1,    /**< the private graph's inputs change while it runs */
    TQ_EVENT_BUFFER_WRITE = 2,  /**< a rendered block goes into its track's ring buffers */
    TQ_EVENT_BUFFER_READ = 3,   /**< the private graph reads a track's ring buffers */
    TQ_EVENT_CAPTURE_STOP = 4,  /**< capture as a whole stops */
    TQ_EVENT_PROCESSING = 5,    /**< ducking and compression of a block */
    TQ_EVENT_UNIT_START = 6,    /**< the program starts one of its units */
    TQ_EVENT_STREAM = 7         /**< a native stream of the program begins to play */
};

/** What happened there. */
enum tq_event_code {
    TQ_EVENT_DONE = 0,
    TQ_EVENT_GRAPH_REFUSED = 100,     /**< the private graph or one of its buses said no */
    TQ_EVENT_STOP_FAILED = 102,       /**< a stop failed, or had failed earlier in this process */
    TQ_EVENT_HOOKS_NOT_WORKING = 103, /**< the self-test of the hooks has not succeeded */
    TQ_EVENT_UPDATE_FAILED = 104,
    TQ_EVENT_UPDATE_POSTPONED = 105,
    TQ_EVENT_UNIT_UNKNOWN = 107,
    TQ_EVENT_SIZE_MISMATCH = 109,
    TQ_EVENT_BUFFERS_MISSING = 110,
    TQ_EVENT_NOTHING_WRITTEN = 111,
    TQ_EVENT_FORMAT_UNSUPPORTED = 112,
    TQ_EVENT_NOT_RECORDED = 113 /**< no unit is free for it, or the bridge cannot serve it */
};

/** How much an event matters to whoever watches a recording. */
enum tq_event_kind {
    TQ_EVENT_KIND_SUCCESS = 0, /**< something was done as asked */
    TQ_EVENT_KIND_ROUTINE = 1, /**< its code is not 0, but every normal start has it: no failure */
    TQ_EVENT_KIND_FAILURE = 2  /**< sound is missing, or unchanged where it should be changed */
};

/** What a track's sound comes from. */
enum tq_hook_track_type {
    TQ_HOOK_TRACK_UNIT = 8,            /**< an audio unit of its own */
    TQ_HOOK_TRACK_GRAPH_CALLBACK = 16, /**< a graph's unit whose input callback was taken over */
    TQ_HOOK_TRACK_GRAPH = 32           /**< a graph's unit without one */
};

/** One row of the table of events. */
struct tq_event_entry {
    enum tq_event_category category;
    enum tq_event_code code;
    enum tq_event_kind kind;
    const char* text; /**< one clause for a person, without a full stop; never null */
};

/** [any thread] Real-time safe. Every event that the library or its recorder raises, by
 * category, then code. `count`, when it is not null, becomes the number of rows. The table is
 * constant and stays. */
static inline const struct tq_event_entry* tq_event_table(size_t* count) {
    static const struct tq_event_entry kTable[] = {
        {TQ_EVENT_CAPTURE_START, TQ_EVENT_DONE, TQ_EVENT_KIND_SUCCESS, "capture has started"},
        {TQ_EVENT_CAPTURE_START, TQ_EVENT_GRAPH_REFUSED, TQ_EVENT_KIND_FAILURE,
         "capture cannot start: the graph that mixes the tracks could not be built or started"},
        {TQ_EVENT_CAPTURE_START, TQ_EVENT_STOP_FAILED, TQ_EVENT_KIND_FAILURE,
         "capture cannot start: an earlier stop failed, which rules it out in this process"},
        {TQ_EVENT_CAPTURE_START, TQ_EVENT_HOOKS_NOT_WORKING, TQ_EVENT_KIND_FAILURE,
         "capture cannot start: the hooks are not installed or do not work"},
        {TQ_EVENT_MIX_CHANGE, TQ_EVENT_DONE, TQ_EVENT_KIND_SUCCESS,
         "a track has joined or left the mix or has changed its format"},
        {TQ_EVENT_MIX_CHANGE, TQ_EVENT_GRAPH_REFUSED, TQ_EVENT_KIND_FAILURE,
         "a track could not join or leave the mix, or its new format is not known to the mix"},
        {TQ_EVENT_MIX_CHANGE, TQ_EVENT_UPDATE_FAILED, TQ_EVENT_KIND_FAILURE,
         "the mix refuses a change of its tracks"},
        {TQ_EVENT_MIX_CHANGE, TQ_EVENT_UPDATE_POSTPONED, TQ_EVENT_KIND_ROUTINE,
         "the mix makes a change of its tracks at its next block"},
        {TQ_EVENT_BUFFER_WRITE, TQ_EVENT_UNIT_UNKNOWN, TQ_EVENT_KIND_FAILURE,
         "a unit plays that is not on record any more: it plays on, its sound is not recorded"},
        {TQ_EVENT_BUFFER_WRITE, TQ_EVENT_SIZE_MISMATCH, TQ_EVENT_KIND_FAILURE,
         "the unit renders fewer bytes than its format says: the block is lost"},
        {TQ_EVENT_BUFFER_WRITE, TQ_EVENT_NOTHING_WRITTEN, TQ_EVENT_KIND_FAILURE,
         "the block is empty or the track's ring buffer is full: nothing was stored"},
        {TQ_EVENT_BUFFER_READ, TQ_EVENT_SIZE_MISMATCH, TQ_EVENT_KIND_FAILURE,
         "the mix asks for blocks of another size than the track's format gives: silence instead"},
        {TQ_EVENT_BUFFER_READ, TQ_EVENT_BUFFERS_MISSING, TQ_EVENT_KIND_ROUTINE,
         "the mix reads a track before its unit has stored a first block"},
        {TQ_EVENT_CAPTURE_STOP, TQ_EVENT_STOP_FAILED, TQ_EVENT_KIND_FAILURE,
         "capture could not be stopped cleanly and cannot start again in this process"},
        {TQ_EVENT_PROCESSING, TQ_EVENT_HOOKS_NOT_WORKING, TQ_EVENT_KIND_FAILURE,
         "ducking or compression could not be switched on"},
        {TQ_EVENT_PROCESSING, TQ_EVENT_FORMAT_UNSUPPORTED, TQ_EVENT_KIND_FAILURE,
         "the unit's format is none that ducking and compression know: its sound is unchanged"},
        {TQ_EVENT_UNIT_START, TQ_EVENT_DONE, TQ_EVENT_KIND_SUCCESS,
         "the program has started a unit"},
        {TQ_EVENT_STREAM, TQ_EVENT_FORMAT_UNSUPPORTED, TQ_EVENT_KIND_FAILURE,
         "a stream's sound is coded or has a format that is not recorded: it plays on"},
        {TQ_EVENT_STREAM, TQ_EVENT_NOT_RECORDED, TQ_EVENT_KIND_FAILURE,
         "a stream plays that is not recorded: seven others have the tracks"},
    };
    if (count != NULL) {
        *count = sizeof kTable / sizeof kTable[0];
    }
    return kTable;
}

/** [any thread] Real-time safe. The row of that event; null for a pair that no row has. */
static inline const struct tq_event_entry* tq_event_find(uint64_t category, uint64_t code) {
    size_t count = 0;
    const struct tq_event_entry* const table = tq_event_table(&count);
    for (size_t i = 0; i < count; ++i) {
        if ((uint64_t)table[i].category == category && (uint64_t)table[i].code == code) {
            return &table[i];
        }
    }
    return NULL;
}

/** [any thread] Real-time safe. What happened, for a person; never null. The text is constant. */
static inline const char* tq_event_text(uint64_t category, uint64_t code) {
    const struct tq_event_entry* const entry = tq_event_find(category, code);
    return entry == NULL ? "an event that this version does not know" : entry->text;
}

/** [any thread] Real-time safe. A pair that no row has is a failure unless its code is 0. */
static inline enum tq_event_kind tq_event_kind_of(uint64_t category, uint64_t code) {
    const struct tq_event_entry* const entry = tq_event_find(category, code);
    if (entry != NULL) {
        return entry->kind;
    }
    return code == TQ_EVENT_DONE ? TQ_EVENT_KIND_SUCCESS : TQ_EVENT_KIND_FAILURE;
}

#ifdef __cplusplus
}
#endif

#endif
