#include <csdl.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "Player.h"

/* What the back end asks of its engine: a table of functions in the struct that it is handed. */

static void *playData, *recordData;
static int (*openForPlaying)(CSOUND*, const csRtAudioParams*);
static void (*writeFrames)(CSOUND*, const MYFLT*, int);
static void (*closeAll)(CSOUND*);

static struct Ring {
    MYFLT samples[4096];
    unsigned read, written;
} ring;

static int readRing(CSOUND* engine, void* from, void* to, int count) {
    (void)engine, (void)from;
    int i = 0;
    for (; i < count && ring.read != ring.written; ++i) {
        ((MYFLT*)to)[i] = ring.samples[ring.read++ % 4096];
    }
    return i;
}
/* The back end tries again until it has written all; room comes when the device has taken
 * something. */
static int writeRing(CSOUND* engine, void* to, const void* from, int count) {
    (void)engine, (void)to;
    if (ring.written - ring.read + (unsigned)count > 4096) {
        pumpSlice();
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        ring.samples[ring.written++ % 4096] = ((const MYFLT*)from)[i];
    }
    return count;
}
static void* makeRing(CSOUND* engine, int count, int size) {
    (void)engine, (void)count, (void)size;
    return &ring;
}
static void dropRing(CSOUND* engine, void* dropped) {
    (void)engine, (void)dropped;
}

static void* allocate(CSOUND* engine, size_t bytes) {
    (void)engine;
    return calloc(1, bytes);
}
static void release(CSOUND* engine, void* memory) {
    (void)engine;
    free(memory);
}
static void** giveRecordData(CSOUND* engine) {
    (void)engine;
    return &recordData;
}
static void** givePlayData(CSOUND* engine) {
    (void)engine;
    return &playData;
}
static void giveParameters(CSOUND* engine, OPARMS* parameters) {
    (void)engine;
    memset(parameters, 0, sizeof *parameters);
}
static void* variable(CSOUND* engine, const char* name) {
    static int channels;
    (void)engine;
    return strcmp(name, "_RTAUDIO") == 0 ? (void*)"auhal" : &channels;
}
static MYFLT rate(CSOUND* engine) {
    (void)engine;
    return kPlayerRate;
}
static MYFLT systemRate(CSOUND* engine, MYFLT value) {
    (void)engine;
    return value;
}
static uint32_t channelCount(CSOUND* engine) {
    (void)engine;
    return kPlayerChannels;
}
static int bufferSize(CSOUND* engine) {
    (void)engine;
    return kPlayerSlice * kPlayerChannels;
}
static int listModule(CSOUND* engine, char* name, char* kind) {
    (void)engine, (void)name, (void)kind;
    return 0;
}
static void keepOpen(CSOUND* engine, int (*function)(CSOUND*, const csRtAudioParams*)) {
    (void)engine;
    openForPlaying = function;
}
static void keepWrite(CSOUND* engine, void (*function)(CSOUND*, const MYFLT*, int)) {
    (void)engine;
    writeFrames = function;
}
static void keepClose(CSOUND* engine, void (*function)(CSOUND*)) {
    (void)engine;
    closeAll = function;
}
static void keepOther() {
}

int csoundModuleInit(CSOUND* engine);

void play(void) {
    CSOUND* const engine = calloc(1, sizeof *engine);
    csRtAudioParams parameters = {
        .nChannels = kPlayerChannels, .bufSamp_HW = 2 * kPlayerSlice, .sampleRate = kPlayerRate};
    engine->Malloc = allocate;
    engine->Calloc = allocate;
    engine->Free = release;
    engine->GetRtRecordUserData = giveRecordData;
    engine->GetRtPlayUserData = givePlayData;
    engine->GetOParms = giveParameters;
    engine->QueryGlobalVariable = variable;
    engine->GetSr = rate;
    engine->system_sr = systemRate;
    engine->GetNchnls = channelCount;
    engine->GetOutputBufferSize = bufferSize;
    engine->CreateCircularBuffer = makeRing;
    engine->DestroyCircularBuffer = dropRing;
    engine->ReadCircularBuffer = readRing;
    engine->WriteCircularBuffer = writeRing;
    engine->module_list_add = listModule;
    engine->SetPlayopenCallback = keepOpen;
    engine->SetRtplayCallback = keepWrite;
    engine->SetRtcloseCallback = keepClose;
    engine->SetRecopenCallback = keepOther;
    engine->SetRtrecordCallback = keepOther;
    engine->SetAudioDeviceListCallback = keepOther;
    if (csoundModuleInit(engine) != 0 || openForPlaying(engine, &parameters) != 0) {
        playerFailed("open");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        int16_t frames[kPlayerSlice * kPlayerChannels];
        MYFLT floats[kPlayerSlice * kPlayerChannels];
        nextFrames(frames, kPlayerSlice);
        for (int k = 0; k < kPlayerSlice * kPlayerChannels; ++k) {
            floats[k] = frames[k] / 32768.0;
        }
        writeFrames(engine, floats, sizeof floats);
        pumpSlice();
    }
    closeAll(engine);
    free(engine);
}
