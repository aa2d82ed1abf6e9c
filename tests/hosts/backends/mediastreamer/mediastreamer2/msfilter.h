#pragma once

/* What the back end uses of the streamer around it: a filter with a queue of blocks in front, a
 * sound card, a buffer. */

#include <CoreServices/CoreServices.h>
#include <arpa/inet.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Player.h"

typedef bool bool_t;

#define ms_debug(...) ((void)0)
#define ms_message(...) ((void)0)
#define ms_warning(...) playerFailed("a warning: " #__VA_ARGS__)
#define ms_error(...) playerFailed("an error: " #__VA_ARGS__)
#define GetMacOSStatusErrorString(status) ""
#define GetMacOSStatusCommentString(status) ""
#define N_(text) text

#define ms_new0(type, count) ((type*)calloc(count, sizeof(type)))
#define ms_malloc malloc
#define ms_free free
#define ms_strdup strdup
char* ms_strdup_printf(const char* format, ...);

typedef pthread_mutex_t ms_mutex_t;
#define ms_mutex_init pthread_mutex_init
#define ms_mutex_destroy pthread_mutex_destroy
#define ms_mutex_lock pthread_mutex_lock
#define ms_mutex_unlock pthread_mutex_unlock

typedef struct mblk {
    uint8_t *b_rptr, *b_wptr;
} mblk_t;
typedef struct {
    mblk_t* first;
} queue_t;
mblk_t* allocb(size_t bytes, int unused);
void qinit(queue_t* queue);
void putq(queue_t* queue, mblk_t* block);
mblk_t* getq(queue_t* queue);
void flushq(queue_t* queue, int unused);

typedef queue_t MSQueue;
#define ms_queue_get getq
#define ms_queue_put putq

typedef struct MSTicker MSTicker;
typedef struct MSTickerSynchronizer MSTickerSynchronizer;
MSTickerSynchronizer* ms_ticker_synchronizer_new(void);
void ms_ticker_synchronizer_destroy(MSTickerSynchronizer* synchronizer);
void ms_ticker_synchronizer_update(MSTickerSynchronizer* synchronizer, uint64_t samples, int rate);
void ms_ticker_set_synchronizer(MSTicker* ticker, MSTickerSynchronizer* synchronizer);

typedef struct MSFilterDesc MSFilterDesc;
typedef struct MSFilter {
    const MSFilterDesc* desc;
    void* data;
    MSQueue *inputs[1], *outputs[1];
    MSTicker* ticker;
} MSFilter;

typedef struct {
    unsigned id;
    int (*method)(MSFilter*, void*);
} MSFilterMethod;

struct MSFilterDesc {
    int id;
    const char *name, *text;
    int category, ninputs, noutputs;
    void (*init)(MSFilter*);
    void (*preprocess)(MSFilter*);
    void (*process)(MSFilter*);
    void (*postprocess)(MSFilter*);
    void (*uninit)(MSFilter*);
    MSFilterMethod* methods;
};

enum { MS_FILTER_OTHER, MS_CA_READ_ID, MS_CA_WRITE_ID };
enum {
    MS_FILTER_SET_SAMPLE_RATE = 1,
    MS_FILTER_GET_SAMPLE_RATE,
    MS_FILTER_SET_NCHANNELS,
    MS_FILTER_GET_NCHANNELS,
    MS_AUDIO_CAPTURE_SET_VOLUME_GAIN,
    MS_AUDIO_CAPTURE_GET_VOLUME_GAIN,
    MS_AUDIO_PLAYBACK_SET_VOLUME_GAIN,
    MS_AUDIO_PLAYBACK_GET_VOLUME_GAIN
};
#define MS_FILTER_DESC_EXPORT(description)

typedef struct MSFactory MSFactory;
MSFilter* ms_factory_create_filter_from_desc(MSFactory* factory, MSFilterDesc* description);

typedef struct Bufferizer MSFlowControlledBufferizer;
MSFlowControlledBufferizer* ms_flow_controlled_bufferizer_new(MSFilter* filter, int rate,
                                                              int channels);
void ms_flow_controlled_bufferizer_set_max_size_ms(MSFlowControlledBufferizer* buffer, int ms);
void ms_flow_controlled_bufferizer_set_flow_control_interval_ms(MSFlowControlledBufferizer* buffer,
                                                                int ms);
void ms_flow_controlled_bufferizer_set_nchannels(MSFlowControlledBufferizer* buffer, int channels);
void ms_flow_controlled_bufferizer_put(MSFlowControlledBufferizer* buffer, mblk_t* block);
int ms_flow_controlled_bufferizer_read(MSFlowControlledBufferizer* buffer, void* to, size_t bytes);
void ms_flow_controlled_bufferizer_destroy(MSFlowControlledBufferizer* buffer);

typedef enum { MS_SND_CARD_MASTER } MSSndCardMixerElem;
typedef enum { MS_SND_CARD_MIC } MSSndCardCapture;
typedef enum {
    MS_SND_CARD_DEVICE_TYPE_UNKNOWN,
    MS_SND_CARD_DEVICE_TYPE_MICROPHONE,
    MS_SND_CARD_DEVICE_TYPE_EARPIECE,
    MS_SND_CARD_DEVICE_TYPE_SPEAKER,
    MS_SND_CARD_DEVICE_TYPE_HEADSET,
    MS_SND_CARD_DEVICE_TYPE_HEADPHONES,
    MS_SND_CARD_DEVICE_TYPE_BLUETOOTH,
    MS_SND_CARD_DEVICE_TYPE_GENERIC_USB
} MSSndCardDeviceType;
enum { MS_SND_CARD_CAP_CAPTURE = 1, MS_SND_CARD_CAP_PLAYBACK = 2 };

typedef struct MSSndCardDesc MSSndCardDesc;
typedef struct MSSndCard {
    MSSndCardDesc* desc;
    char* name;
    unsigned capabilities;
    void* data;
    int latency;
    MSSndCardDeviceType device_type;
} MSSndCard;
typedef struct MSSndCardManager MSSndCardManager;
struct MSSndCardDesc {
    const char* driver_type;
    void (*detect)(MSSndCardManager*);
    void (*init)(MSSndCard*);
    void (*set_level)(MSSndCard*, MSSndCardMixerElem, int);
    int (*get_level)(MSSndCard*, MSSndCardMixerElem);
    void (*set_capture)(MSSndCard*, MSSndCardCapture);
    int (*set_control)(MSSndCard*, int, int);
    int (*get_control)(MSSndCard*, int);
    MSFilter* (*create_reader)(MSSndCard*);
    MSFilter* (*create_writer)(MSSndCard*);
    void (*uninit)(MSSndCard*);
    MSSndCard* (*duplicate)(MSSndCard*);
};
MSSndCard* ms_snd_card_new(MSSndCardDesc* description);
MSFactory* ms_snd_card_get_factory(MSSndCard* card);
void ms_snd_card_manager_add_card(MSSndCardManager* manager, MSSndCard* card);
