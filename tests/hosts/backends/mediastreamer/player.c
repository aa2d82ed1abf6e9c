#define _GNU_SOURCE

#include <stdarg.h>

#include "mediastreamer2/msfilter.h"

extern MSSndCardDesc ca_card_desc;

static MSSndCard* found;

char* ms_strdup_printf(const char* format, ...) {
    char* text = NULL;
    va_list arguments;
    va_start(arguments, format);
    if (vasprintf(&text, format, arguments) < 0) {
        playerFailed("memory");
    }
    va_end(arguments);
    return text;
}

mblk_t* allocb(size_t bytes, int unused) {
    mblk_t* const block = malloc(sizeof *block + bytes);
    (void)unused;
    block->b_rptr = block->b_wptr = (uint8_t*)(block + 1);
    return block;
}
void qinit(queue_t* queue) {
    queue->first = NULL;
}
void putq(queue_t* queue, mblk_t* block) {
    queue->first = block;
}
mblk_t* getq(queue_t* queue) {
    mblk_t* const block = queue->first;
    queue->first = NULL;
    return block;
}
void flushq(queue_t* queue, int unused) {
    (void)unused;
    free(getq(queue));
}

MSTickerSynchronizer* ms_ticker_synchronizer_new(void) {
    return NULL;
}
void ms_ticker_synchronizer_destroy(MSTickerSynchronizer* synchronizer) {
    (void)synchronizer;
}
void ms_ticker_synchronizer_update(MSTickerSynchronizer* synchronizer, uint64_t samples, int rate) {
    (void)synchronizer, (void)samples, (void)rate;
}
void ms_ticker_set_synchronizer(MSTicker* ticker, MSTickerSynchronizer* synchronizer) {
    (void)ticker, (void)synchronizer;
}

MSFilter* ms_factory_create_filter_from_desc(MSFactory* factory, MSFilterDesc* description) {
    MSFilter* const filter = ms_new0(MSFilter, 1);
    (void)factory;
    filter->desc = description;
    filter->inputs[0] = ms_new0(MSQueue, 1);
    description->init(filter);
    return filter;
}

/* Holds at most the block that is to be played next. */
struct Bufferizer {
    uint8_t bytes[kPlayerSlice * kPlayerChannels * 2];
    size_t count;
};
MSFlowControlledBufferizer* ms_flow_controlled_bufferizer_new(MSFilter* filter, int rate,
                                                              int channels) {
    (void)filter, (void)rate, (void)channels;
    return ms_new0(MSFlowControlledBufferizer, 1);
}
void ms_flow_controlled_bufferizer_set_max_size_ms(MSFlowControlledBufferizer* buffer, int ms) {
    (void)buffer, (void)ms;
}
void ms_flow_controlled_bufferizer_set_flow_control_interval_ms(MSFlowControlledBufferizer* buffer,
                                                                int ms) {
    (void)buffer, (void)ms;
}
void ms_flow_controlled_bufferizer_set_nchannels(MSFlowControlledBufferizer* buffer, int channels) {
    (void)buffer, (void)channels;
}
void ms_flow_controlled_bufferizer_put(MSFlowControlledBufferizer* buffer, mblk_t* block) {
    buffer->count = (size_t)(block->b_wptr - block->b_rptr);
    memcpy(buffer->bytes, block->b_rptr, buffer->count);
    free(block);
}
int ms_flow_controlled_bufferizer_read(MSFlowControlledBufferizer* buffer, void* to, size_t bytes) {
    if (buffer->count < bytes) {
        return 0;
    }
    memcpy(to, buffer->bytes, bytes);
    buffer->count = 0;
    return (int)bytes;
}
void ms_flow_controlled_bufferizer_destroy(MSFlowControlledBufferizer* buffer) {
    free(buffer);
}

MSSndCard* ms_snd_card_new(MSSndCardDesc* description) {
    MSSndCard* const card = ms_new0(MSSndCard, 1);
    card->desc = description;
    description->init(card);
    return card;
}
MSFactory* ms_snd_card_get_factory(MSSndCard* card) {
    (void)card;
    return NULL;
}
void ms_snd_card_manager_add_card(MSSndCardManager* manager, MSSndCard* card) {
    (void)manager;
    found = card;
}

void play(void) {
    int channels = kPlayerChannels;
    ca_card_desc.detect(NULL);
    if (found == NULL) {
        playerFailed("no card");
    }
    MSFilter* const filter = ca_card_desc.create_writer(found);
    for (MSFilterMethod* method = filter->desc->methods; method->id != 0; ++method) {
        if (method->id == MS_FILTER_SET_NCHANNELS) {
            method->method(filter, &channels);
        }
    }
    filter->desc->preprocess(filter);
    for (int i = 0; i < kPlayerSlices; ++i) {
        mblk_t* const block = allocb(kPlayerSlice * kPlayerChannels * 2, 0);
        nextFrames((int16_t*)block->b_wptr, kPlayerSlice);
        block->b_wptr += kPlayerSlice * kPlayerChannels * 2;
        putq(filter->inputs[0], block);
        filter->desc->process(filter);
        pumpSlice();
    }
    filter->desc->postprocess(filter);
    filter->desc->uninit(filter);
    free(filter->inputs[0]);
    free(filter);
}
