#include "Player.h"

#include "audio/out/internal.h"

#include "audio/format.h"
#include "audio/out/ao_coreaudio_chmap.h"
#include "audio/out/ao_coreaudio_properties.h"
#include "audio/out/ao_coreaudio_utils.h"
#include "options/m_option.h"

extern const struct ao_driver audio_out_coreaudio;

/* Named in the back end's tables. */
const m_option_type_t m_option_type_flag;
void ca_get_device_list(struct ao* ao, struct ao_device_list* list) {
    (void)ao, (void)list;
}

bool af_fmt_is_pcm(int format) {
    return format == AF_FORMAT_FLOAT;
}
void mp_msg(struct mp_log* log, int level, const char* format, ...) {
    (void)log, (void)level, (void)format;
}
int64_t mp_time_us(void) {
    return 0;
}
int64_t ca_get_latency(const AudioTimeStamp* time) {
    (void)time;
    return 0;
}
int64_t ca_frames_to_us(struct ao* ao, uint32_t frames) {
    return (int64_t)frames * 1000000 / ao->samplerate;
}
int64_t ca_get_device_latency_us(struct ao* ao, AudioDeviceID device) {
    (void)ao, (void)device;
    return 0;
}
OSStatus ca_select_device(struct ao* ao, char* name, AudioDeviceID* device) {
    (void)ao, (void)name;
    *device = kDesktopDevice;
    return noErr;
}
bool ca_init_chmap(struct ao* ao, AudioDeviceID device) {
    (void)ao, (void)device;
    return true;
}
void ca_fill_asbd(struct ao* ao, AudioStreamBasicDescription* format) {
    *format = (AudioStreamBasicDescription){.mSampleRate = ao->samplerate,
                                            .mFormatID = kAudioFormatLinearPCM,
                                            .mFormatFlags = kAudioFormatFlagsNativeFloatPacked,
                                            .mBytesPerPacket = 4 * kPlayerChannels,
                                            .mFramesPerPacket = 1,
                                            .mBytesPerFrame = 4 * kPlayerChannels,
                                            .mChannelsPerFrame = kPlayerChannels,
                                            .mBitsPerChannel = 32};
}
bool check_ca_st(struct ao* ao, int level, OSStatus code, const char* message) {
    (void)ao, (void)level;
    if (code != noErr) {
        playerFailed(message);
    }
    return true;
}
int ao_read_data(struct ao* ao, void** data, int samples, int64_t time) {
    (void)ao, (void)time;
    nextFloatFrames(data[0], (unsigned)samples);
    return samples;
}

void play(void) {
    struct ao ao = {.samplerate = kPlayerRate, .format = AF_FORMAT_FLOAT, .num_planes = 1};
    ao.priv = calloc(1, (size_t)audio_out_coreaudio.priv_size);
    if (audio_out_coreaudio.init(&ao) != CONTROL_OK) {
        playerFailed("init");
    }
    audio_out_coreaudio.start(&ao);
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    audio_out_coreaudio.uninit(&ao);
    free(ao.priv);
}
