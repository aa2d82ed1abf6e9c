#ifndef TQ_CAPTURE_H
#define TQ_CAPTURE_H

/* The capture library for C and for every language that can call C.
 *
 * A program, or a library that is loaded into it, listens to what the program plays: the mix of all
 * tracks, each track's own blocks, events, log lines and what becomes of the program's audio units.
 * It can duck and compress what the program plays, and ask and set the crash guard that decides
 * whether the hooks come at the program's next launch.
 *
 * Structs begin with their size in bytes. Whoever fills a struct sets it to sizeof the struct: the
 * caller for what goes in and for places where an answer is wanted, the library for what a callback
 * gets. A struct of an earlier version is shorter; what it lacks is taken as 0 or left out.
 *
 * Handles are numbers in the shape of pointers. They never come back, so that a handle that has
 * ended is refused, not mistaken.
 *
 * Threads: [host thread] may wait and allocate, [render thread] renders a block, [any thread] is
 * both. From inside a callback of this interface only what says so may be called; the rest answers
 * TQ_ERROR_INSIDE_CALLBACK.
 *
 * For C99 and C++. */

#include <stddef.h>
#include <stdint.h>

#include "tq_events.h"

#if defined(__GNUC__)
#define TQ_CAPTURE_EXPORT __attribute__((visibility("default")))
#else
#define TQ_CAPTURE_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** What a call answers. Negative: the call itself was wrong, nothing has changed. Positive: the
 * library refused; the numbers are those of its C++ classes. */
enum tq_result {
    TQ_OK = 0,
    TQ_ERROR_NULL = -1,            /**< a pointer that must not be null is */
    TQ_ERROR_SIZE = -2,            /**< a struct's size field is too small or not set */
    TQ_ERROR_HANDLE = -3,          /**< no such handle, or it has ended */
    TQ_ERROR_VALUE = -4,           /**< a value is out of its range, or not a number */
    TQ_ERROR_INSIDE_CALLBACK = -5, /**< not from inside a callback of this interface */
    TQ_ERROR_NO_MEMORY = -6,
    TQ_ERROR_ROOM = -7, /**< the text does not fit into the room given */

    TQ_ERROR_GUARD_NOT_READY = 1,    /**< the crash guard has no files */
    TQ_ERROR_UNKNOWN = 10,           /**< for no reason that has a number */
    TQ_ERROR_NOT_ON = 11,            /**< this handle has not switched the effect on */
    TQ_ERROR_OWNED_BY_ANOTHER = 13,  /**< somebody else has switched the effect on */
    TQ_ERROR_GUARD_FULL = 22,        /**< the crash guard has no room for another id */
    TQ_ERROR_NO_BRIDGES = 30,        /**< libTQAudioRecordBridge cannot be loaded */
    TQ_ERROR_HOOKS_NOT_WORKING = 103 /**< the hooks are not installed or do not work */
};

/** [any thread] [real-time safe] [inside callbacks] A result as a clause for a person; never null,
 * constant. */
TQ_CAPTURE_EXPORT const char* tq_result_text(enum tq_result result);

/** [any thread] [real-time safe] [inside callbacks] The library's version, "1.0.0"; constant. */
TQ_CAPTURE_EXPORT const char* tq_capture_version(void);

/* ---- what the program plays ---------------------------------------------------------------- */

/** What a track's unit is. */
enum tq_unit_kind {
    TQ_UNIT_NONE = 0, /**< of the mix, which has no unit */
    TQ_UNIT_PLAIN = 1,
    TQ_UNIT_OF_GRAPH = 2 /**< a node of an audio graph */
};

enum tq_block_source {
    TQ_BLOCK_MIX = 0,  /**< all tracks as the program rendered them: 44100 Hz, 16-bit, stereo */
    TQ_BLOCK_TRACK = 1 /**< one track after ducking and compression, at its own rate */
};

/** Samples of a block. They are as the program renders them, see tq_block. */
struct tq_format {
    double sample_rate; /**< Hz */
    uint32_t channels;
    uint32_t bits_per_channel;
    uint32_t is_float;       /**< 0: integers */
    uint32_t is_interleaved; /**< 1: one buffer holds all channels; 0: a buffer for each channel */
};

struct tq_buffer {
    const void* data; /**< null when there is nothing: the block is silent there */
    uint32_t bytes;
    uint32_t channels;
};

/** One block of sound. It and what it points to belong to the library and are valid during the
 * call. */
struct tq_block {
    size_t size;
    enum tq_block_source source;
    uint32_t track;   /**< 1 to 7; 0 for the mix */
    const char* name; /**< "mix", "unit-3" or "graph-1": stays the unit's own for its life */
    enum tq_unit_kind unit_kind;
    uint32_t unit; /**< the number in the name; 0 for the mix */
    struct tq_format format;
    uint32_t frames; /**< differs; the last block of a unit that stops is what it has left */
    uint32_t buffer_count;
    const struct tq_buffer* buffers;
    uint64_t host_microseconds; /**< host time at which the block was rendered */
    uint32_t is_big_endian;     /**< the samples' bytes begin with the highest */
    uint32_t is_unsigned;       /**< integers whose silence is the middle of their range */
    /** Fixed point: full scale is 2 to the power of this, 24 where samples are 8.24. 0: integers
     * whose full scale is their range, or floats. */
    uint32_t fraction_bits;
};

/** Valid during the call, like a block. tq_events.h says what the numbers mean. */
struct tq_event {
    size_t size;
    uint64_t category; /**< enum tq_event_category */
    uint64_t code;     /**< enum tq_event_code */
    const char* message;
    uint64_t host_microseconds; /**< when it was raised */
};

enum tq_log_level { TQ_LOG_DEBUG = 1, TQ_LOG_INFO = 2, TQ_LOG_WARNING = 3, TQ_LOG_ERROR = 4 };

/** Valid during the call, like a block. */
struct tq_log_line {
    size_t size;
    enum tq_log_level level;
    const char* file; /**< without folder and extension as far as the library gives them */
    const char* function;
    uint32_t line;
    const char* message;
};

/** Why a unit is not captured at this moment. */
enum tq_unit_reason {
    TQ_UNIT_CAPTURED = 0,       /**< it is */
    TQ_UNIT_NOT_STARTED = 1,    /**< the program has not started it, or has stopped it */
    TQ_UNIT_CAPTURE_OFF = 2,    /**< nobody listens */
    TQ_UNIT_NO_NUMBER_FREE = 3, /**< seven others had the track numbers when it was made */
    TQ_UNIT_MICROPHONE_ON = 4,  /**< units that record too are left alone */
    TQ_UNIT_VOICE_ENGINES = 5,  /**< a voice engine made it on its own thread */
    TQ_UNIT_UNINITIALISED = 6,  /**< uninitialised by the program, and not on record since */
    TQ_UNIT_ANOTHERS = 7,       /**< another library has registered it as its own */
    TQ_UNIT_NO_FORMAT = 8,      /**< its stream format could not be read */
    TQ_UNIT_MIX_REFUSED = 9,    /**< the graph that mixes the tracks did not take it in */
    TQ_UNIT_NUMBER_TAKEN = 10,  /**< a later unit has got its track number (see tq_capture_rules) */
    TQ_UNIT_NOT_SEEN_MADE = 11, /**< it was made before the hooks came */
    TQ_UNIT_EXCLUDED = 12       /**< the rules do not want it (see tq_capture_rules) */
};

/** [any thread] [real-time safe] [inside callbacks] The reason as a clause for a person; never
 * null, constant. */
TQ_CAPTURE_EXPORT const char* tq_unit_reason_text(enum tq_unit_reason reason);

/** One output unit of the program. Valid during the call, like a block. */
struct tq_unit {
    size_t size;
    uint32_t unit; /**< from 1 in the order of first starts; 0 while it was never started */
    enum tq_unit_kind kind;
    uint32_t track; /**< 1 to 7; 0 when it has none */
    uint32_t is_started;
    enum tq_unit_reason reason;
    const char* name; /**< as in its blocks; "unit" or "graph" before its first start */
};

/** What becomes of a native stream that a bridge has seen. */
enum tq_stream_fate {
    TQ_STREAM_RECORDED = 0,
    TQ_STREAM_NO_UNIT_FREE = 1, /**< seven other streams were playing */
    TQ_STREAM_NOT_PCM = 2,      /**< coded sound that goes to the device as it is */
    TQ_STREAM_FORMAT = 3,       /**< more than 8 channels, or a rate that nobody plays */
    TQ_STREAM_HOOKS_OUT = 4,    /**< the library's hooks do not work */
    TQ_STREAM_NO_MEMORY = 5,
    TQ_STREAM_NOTHING_WRITTEN = 6, /**< it is open, and the program has not written to it */
    TQ_STREAM_NOT_OPENED = 7,      /**< the program wanted it and got an error */
    TQ_STREAM_EXCLUDED = 8         /**< it plays, and is not wanted (see tq_bridges) */
};

/** [any thread] [real-time safe] The fate as a clause for a person; never null, constant. */
TQ_CAPTURE_EXPORT const char* tq_stream_fate_text(enum tq_stream_fate fate);

/** A stream of a native sound interface. Told when it begins to play, from time to time, and when
 * it is closed; of one that is open for a second without a sound, that there is none. Valid during
 * the call, like a block. Frames are the stream's own and only grow. */
struct tq_stream {
    size_t size;
    uint64_t stream;  /**< from 1 in the order of opening */
    const char* name; /**< as in its blocks */
    enum tq_stream_fate fate;
    uint32_t is_closed;
    uint32_t channels;
    double sample_rate; /**< Hz */
    uint64_t written;   /**< frames that the native interface has taken */
    uint64_t played;    /**< of those, rendered by the stream's unit */
    uint64_t dropped;   /**< of those, thrown away by the program: flushed or taken back */
    uint64_t lost;      /**< of those, in the track as silence of that length or not at all */
    uint32_t is_paused; /**< by the program: what is not played yet waits for it to go on */
};

/** What a listener wants. Null functions are not called. `context` is handed back to each. None may
 * call fork(), system(), popen() or exec: a fork waits for the locks that the callback runs under,
 * and its child would begin inside the callback. Tell another thread to do it. */
struct tq_listener {
    size_t size;
    void* context;
    /** [render thread] Blocks of the mix. Must neither wait, allocate nor touch a file. */
    void (*on_mix)(void* context, const struct tq_block* block);
    /** [render thread] Blocks of the tracks. As above. */
    void (*on_track)(void* context, const struct tq_block* block);
    /** [any thread] Something happened; often with locks of the library held. */
    void (*on_event)(void* context, const struct tq_event* event);
    /** [any thread] The library logs. Without any such listener no line is even made. */
    void (*on_log)(void* context, const struct tq_log_line* line);
    /** [host thread] A unit was made, started, stopped, uninitialised or left alone. Comes from
     * within the program's call, with locks of the library held: must not make, start, stop or
     * change units or graphs. */
    void (*on_unit)(void* context, const struct tq_unit* unit);
    /** [any thread] Something became of a native stream. Must not use native sound interfaces. */
    void (*on_stream)(void* context, const struct tq_stream* stream);
};

typedef struct tq_listening tq_listening;

/** [host thread] Listens from now on. `listener` is copied. Capture is on while somebody wants
 * blocks or events: the first such listener starts it, on another thread, and a start that fails is
 * an event. Log lines and units alone do not start it.
 * TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK; TQ_ERROR_VALUE when
 * it wants nothing. `listening` is set only on success and ends with tq_capture_stop(). */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_listen(const struct tq_listener* listener,
                                                   tq_listening** listening);

/** [host thread] Waits for callbacks under way; none comes afterwards, so nothing that a callback
 * waits for may be held. The last listener that wants
 * blocks or events stops the capture, on another thread. TQ_ERROR_HANDLE,
 * TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_stop(tq_listening* listening);

/** [host thread] Waits until the starts and stops of capture asked for so far are done.
 * TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_settle(void);

/** [host thread] Stops capture and starts it again for the listeners that are there, on another
 * thread: for a child of fork(), in which nothing runs of what its parent had started.
 * TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_restart(void);

/** Whether there can be sound at all. */
struct tq_capture_state {
    size_t size;
    uint32_t hooks_installed;  /**< the crash guard let them in when the library was loaded */
    uint32_t self_test_passed; /**< and they see the program's calls; without it nothing starts */
    uint32_t is_capturing;     /**< in a child of fork() not before tq_capture_restart() */
};

/** [any thread] [inside callbacks] TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_NO_MEMORY. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_get_state(struct tq_capture_state* state);

/** Where the library may do better than its own rules for recordings, at the price of other track
 * numbers or samples than those rules give. All are off by default and are the whole process's. */
struct tq_capture_rules {
    size_t size;
    /** A unit that goes frees exactly its own track number. By default its number is taken as the
     * bits of the numbers that become free: 3 frees 1 and 2, and stays taken. */
    uint32_t frees_own_number_only;
    /** A unit that the program disposes of while it is initialised is uninitialised first and so
     * frees its number. By default such units keep theirs, and the eighth gets none. The call that
     * disposes of units is redirected for this at the first time, which stays. */
    uint32_t ends_disposed_units;
    /** Blocks of tracks of 32-bit float come as float. By default as 16-bit integers, cut off at
     * full scale, as the mix has them. */
    uint32_t keeps_float_tracks;
    /** For the next one, valid as long as the process lives. */
    void* context;
    /** [host thread] Whether a unit of that name ("unit-3", "graph-1") is to be captured; asked
     * whenever it is started. One that is not plays, ducked and compressed like the others, and
     * keeps its track number. Not asked for units that stand for native streams, see tq_bridges.
     * Must not call this interface. NULL when all are. */
    uint32_t (*is_unit_wanted)(void* context, const char* name);
};

/** [host thread] Sets all rules, best before the program makes its first unit: `rules` is copied.
 * TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK;
 * TQ_ERROR_HOOKS_NOT_WORKING when the hooks are not installed, then nothing is changed. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_set_rules(const struct tq_capture_rules* rules);

/** Which native sound interfaces are recorded too: all of their streams become units, tracks and
 * part of the mix. */
struct tq_bridges {
    size_t size;
    /** For the three below, valid as long as the process lives. */
    void* context;
    /** [host thread] A stream is about to be opened, or to have its first sound in the child of a
     * fork: ducking that is set in here counts from its first frame on. May call this interface.
     * May be NULL. */
    void (*before_stream)(void* context);
    /** [any thread] Whether somebody will listen who does not listen yet; 0 when nobody will. A
     * process's first sound is kept for him for up to a second, in the child of a fork anew. Must
     * not call this interface. NULL when somebody may. */
    uint32_t (*is_listener_coming)(void* context);
    /** [host thread] Whether a stream of that name is to be recorded; asked once, as it is opened.
     * One that is not plays, ducked and compressed like the others, and takes neither unit nor
     * track. Must not call this interface. NULL when all are. */
    uint32_t (*is_wanted)(void* context, const char* name);
};

/** [host thread] From now on streams of ALSA, PulseAudio, SDL, JACK and PipeWire are recorded, also
 * where the program loads those libraries later. Best before the program's own code runs: streams
 * that are open already are not seen. It stays for the life of the process; a second call changes
 * nothing. `bridges` is copied. Nothing is loaded in a process whose crash guard keeps the hooks
 * out. TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK;
 * TQ_ERROR_HOOKS_NOT_WORKING; TQ_ERROR_NO_BRIDGES when the library that has the bridges is not
 * beside this one. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_use_bridges(const struct tq_bridges* bridges);

/* ---- tracks and units ------------------------------------------------------------------------ */

/** A track that is there now. */
struct tq_track {
    size_t size;
    uint32_t track; /**< 1 to 7 */
    enum tq_unit_kind unit_kind;
    uint32_t unit;
    const char* name;
    enum tq_hook_track_type type;
    /** What the unit renders, as of its first start. Its blocks hold 16-bit integers instead of
     * floats, see tq_capture_rules. */
    struct tq_format format;
    uint32_t mix_backlog_bytes; /**< what its ring for the mix held at the last block, mod 65536 */
    uint32_t track_backlog_bytes; /**< the same of the ring of its own blocks */
};

/** [host thread] Calls `visit` for each track, by number, before it returns; `visit` gets what
 * belongs to the library and is valid during its call. TQ_ERROR_NULL, TQ_ERROR_NO_MEMORY,
 * TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_tracks(void (*visit)(void* context,
                                                                 const struct tq_track* track),
                                                   void* context);

/** [host thread] The same for each unit that the program has made since the hooks came, oldest
 * first, with the reason as of now. Of units that are not on record any more only the latest are
 * kept. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_units(void (*visit)(void* context,
                                                                const struct tq_unit* unit),
                                                  void* context);

/** What there has been in this process; numbers only grow, and a child of fork() goes on from its
 * parent's. */
struct tq_unit_counts {
    size_t size;
    uint64_t created;                 /**< units with a track number, and voice engines' */
    uint64_t started;                 /**< starts of output units and graphs, repeated ones too */
    uint64_t started_with_microphone; /**< of those, left alone because the unit records too */
};

/** [any thread] [inside callbacks] TQ_ERROR_NULL, TQ_ERROR_SIZE. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_get_unit_counts(struct tq_unit_counts* counts);

/* ---- where the frames went ------------------------------------------------------------------- */

/** Why frames that the program has rendered reached no listener. */
enum tq_frame_loss {
    TQ_FRAMES_NOT_CAPTURING = 0,      /**< rendered while their unit was not captured */
    TQ_FRAMES_NOT_WANTED = 1,         /**< nobody listened to the mix, or to tracks */
    TQ_FRAMES_WRONG_SIZE = 2,         /**< the program's buffer holds less than its format says */
    TQ_FRAMES_RING_FULL = 3,          /**< the track's ring had no room */
    TQ_FRAMES_DISCARDED_AT_START = 4, /**< blocks from before the first read of a track */
    TQ_FRAMES_LEFT_AT_STOP = 5,       /**< not yet read when the capture or the unit ended */
    TQ_FRAMES_NO_LISTENER = 6,        /**< read, but their listener had gone */
    TQ_FRAMES_FORMAT_CHANGED = 7,     /**< dropped when their unit changed its format */
    TQ_FRAME_LOSSES = 16              /**< room for reasons to come */
};

/** [any thread] Real-time safe. The reason as a clause for a person; never null, constant. */
static inline const char* tq_frame_loss_text(enum tq_frame_loss loss) {
    switch (loss) {
        case TQ_FRAMES_NOT_CAPTURING:
            return "rendered while not being captured";
        case TQ_FRAMES_NOT_WANTED:
            return "asked for by nobody";
        case TQ_FRAMES_WRONG_SIZE:
            return "in buffers smaller than their format says";
        case TQ_FRAMES_RING_FULL:
            return "without room in the ring";
        case TQ_FRAMES_DISCARDED_AT_START:
            return "discarded at the start of the capture";
        case TQ_FRAMES_LEFT_AT_STOP:
            return "not read before the end";
        case TQ_FRAMES_NO_LISTENER:
            return "read when the listener had gone";
        case TQ_FRAMES_FORMAT_CHANGED:
            return "dropped at a change of the format";
        case TQ_FRAME_LOSSES:
            break;
    }
    return "lost for a reason that this version does not know";
}

/** One of the two ways of a track's frames. */
struct tq_frame_side {
    uint64_t delivered;             /**< to listeners; of the mix: to the mixer */
    uint64_t waiting;               /**< still in rings */
    uint64_t lost[TQ_FRAME_LOSSES]; /**< by enum tq_frame_loss */
};

/** Frames of all units that had one track number, each at its unit's own rate. On both sides
 * rendered = delivered + waiting + the sum of lost; while the program plays, a block may be under
 * way. Numbers only grow, and a child of fork() goes on from its parent's. */
struct tq_frames {
    size_t size;
    uint64_t rendered; /**< by units with a capture object */
    struct tq_frame_side mix;
    struct tq_frame_side track;
};

/** [host thread] `track` 1 to 7, or 0 for all of them. TQ_ERROR_NULL, TQ_ERROR_SIZE,
 * TQ_ERROR_VALUE, TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_capture_get_frames(uint32_t track, struct tq_frames* frames);

/* ---- ducking and compression ----------------------------------------------------------------- */

typedef struct tq_volume tq_volume;

/** How the program's own output is pulled down while the outside level is above a threshold. */
struct tq_ducking {
    size_t size;
    float attack_seconds;  /**< above 0 */
    float release_seconds; /**< above 0 */
    float hold_seconds;    /**< 0 or more */
    float threshold_db;    /**< of the outside level */
    float target_gain_db;  /**< 0 or less: the gain while ducked */
};

/** How peaks of the program's own output are held down. */
struct tq_compressor {
    size_t size;
    float attack_seconds;  /**< above 0 */
    float release_seconds; /**< above 0 */
    float
        side_chain_threshold_db; /**< the threshold tightens while the outside level is above it */
    float threshold_db;
};

/** [any thread] [inside callbacks] The usual values: attack 0.2 s, release 1 s, hold 1 s, threshold
 * -30 dB, gain -20 dB; attack 0.05 s, release 0.1 s, side chain -40 dB, threshold -15 dB.
 * TQ_ERROR_NULL, TQ_ERROR_SIZE. */
TQ_CAPTURE_EXPORT enum tq_result tq_ducking_defaults(struct tq_ducking* ducking);
TQ_CAPTURE_EXPORT enum tq_result tq_compressor_defaults(struct tq_compressor* compressor);

/** [host thread] A handle that can switch both effects; neither is on yet. TQ_ERROR_NULL,
 * TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK. It ends with tq_volume_close(). */
TQ_CAPTURE_EXPORT enum tq_result tq_volume_open(tq_volume** volume);

/** [host thread] Switches off what this handle has switched on. TQ_ERROR_HANDLE,
 * TQ_ERROR_INSIDE_CALLBACK, TQ_ERROR_NO_MEMORY (the handle is still open). */
TQ_CAPTURE_EXPORT enum tq_result tq_volume_close(tq_volume* volume);

/** [host thread] Switches ducking on with these values, which are copied, or off (null). It is one
 * for the whole process: only the handle that switched it on may change it.
 * TQ_ERROR_HANDLE, TQ_ERROR_SIZE, TQ_ERROR_VALUE, TQ_ERROR_OWNED_BY_ANOTHER,
 * TQ_ERROR_HOOKS_NOT_WORKING, TQ_ERROR_NO_MEMORY, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_volume_set_ducking(tq_volume* volume,
                                                       const struct tq_ducking* ducking);
/** [host thread] The same for the compressor. */
TQ_CAPTURE_EXPORT enum tq_result tq_volume_set_compressor(tq_volume* volume,
                                                          const struct tq_compressor* compressor);

/** [host thread] The outside level that ducking, or the compressor's side chain, compares with its
 * threshold; dB, 0 is full scale. A unit that renders its first
 * block later learns of it at the next call.
 * TQ_ERROR_HANDLE, TQ_ERROR_VALUE, TQ_ERROR_NOT_ON, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_volume_set_ducking_level(tq_volume* volume, float db);
TQ_CAPTURE_EXPORT enum tq_result tq_volume_set_compressor_level(tq_volume* volume, float db);

/* ---- the crash guard ---------------------------------------------------------------------------
 */

/** Why the hooks come, or stay out. */
enum tq_guard_reason {
    TQ_GUARD_ARMED = 0,
    TQ_GUARD_NEVER_ENABLED = 1, /**< nobody has ever asked for the hooks */
    TQ_GUARD_NOT_WANTED = 2,    /**< whoever asked has taken it back */
    TQ_GUARD_FORBIDDEN = 3,     /**< the program forbids them, whoever asks */
    TQ_GUARD_USED_UP = 4,       /**< it died inside the hooks too often */
    TQ_GUARD_NO_FILES = 5       /**< the guard's files cannot be made, read or understood */
};

/** [any thread] [real-time safe] [inside callbacks] The reason as a clause for a person; never
 * null, constant. */
TQ_CAPTURE_EXPORT const char* tq_guard_reason_text(enum tq_guard_reason reason);

/** The crash guard of the program that this process runs. */
struct tq_guard_state {
    size_t size;
    enum tq_guard_reason next_launch; /**< what would happen if the program started now */
    enum tq_guard_reason this_launch; /**< what decided when the library was loaded */
    int32_t retries_left;             /**< deaths inside the hooks that it still bears */
    int32_t retries_at_load;          /**< the same as found at load, before one was spent */
    int32_t threads_inside_at_death;  /**< above 0: the launch before this one died in the hooks */
    uint32_t ids;                     /**< how many ids have asked or forbidden, up to 20 */
    uint32_t ids_wanting;
    uint32_t ids_forbidding;
};

/** [host thread] TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_guard_get_state(struct tq_guard_state* state);

/** [host thread] Asks for the hooks under an id of the caller's choice, from the next launch on,
 * and restores the retries. It also says that this launch's hooks have proved themselves: a death
 * in them is not counted any more. Where the retries are used up, what other ids wanted or forbade
 * is forgotten by this. TQ_ERROR_GUARD_NOT_READY, TQ_ERROR_GUARD_FULL, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_guard_arm(uint32_t id);

/** [host thread] Takes back every wish for the hooks, under whatever id, from the next launch on.
 * Prohibitions stay. TQ_ERROR_GUARD_NOT_READY, TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_guard_disarm(void);

/** [host thread] Writes the path of the folder that holds the guard's files, terminated. `bytes` is
 * the room at `path`. TQ_ERROR_NULL, TQ_ERROR_ROOM (nothing is written), TQ_ERROR_NO_MEMORY,
 * TQ_ERROR_INSIDE_CALLBACK. */
TQ_CAPTURE_EXPORT enum tq_result tq_guard_folder(char* path, size_t bytes);

#ifdef __cplusplus
}
#endif

#endif
