#pragma once

/* What the back end knows of the program: the table of a sound device, as this back end fills it.
 */

#include <stdbool.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

typedef int BOOL;
typedef uint8_t BYTE;
typedef uint16_t UINT16;
typedef uint32_t UINT32;
typedef unsigned UINT;
#define TRUE 1
#define FALSE 0
#define __unused
#define MIN(a, b) ((a) < (b) ? (a) : (b))

enum { WAVE_FORMAT_PCM = 1, CHANNEL_RC_OK = 0, CHANNEL_RC_NO_MEMORY = 12 };

typedef struct {
    UINT16 wFormatTag;
    UINT16 nChannels;
    UINT32 nSamplesPerSec;
    UINT16 wBitsPerSample;
} AUDIO_FORMAT;

typedef struct rdpsnd_device rdpsndDevicePlugin;
struct rdpsnd_device {
    BOOL (*Open)(rdpsndDevicePlugin*, AUDIO_FORMAT*, int);
    BOOL (*FormatSupported)(rdpsndDevicePlugin*, AUDIO_FORMAT*);
    BOOL (*SetFormat)(rdpsndDevicePlugin*, AUDIO_FORMAT*, int);
    BOOL (*SetVolume)(rdpsndDevicePlugin*, UINT32);
    UINT (*Play)(rdpsndDevicePlugin*, BYTE*, int);
    void (*Start)(rdpsndDevicePlugin*);
    void (*Close)(rdpsndDevicePlugin*);
    void (*Free)(rdpsndDevicePlugin*);
};

typedef struct {
    void* rdpsnd;
    void (*pRegisterRdpsndDevice)(void* rdpsnd, rdpsndDevicePlugin* device);
} * PFREERDP_RDPSND_DEVICE_ENTRY_POINTS;
