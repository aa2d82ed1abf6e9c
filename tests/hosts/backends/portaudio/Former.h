#pragma once

/* The desktop's device calls by their former names, each in terms of the present ones. */

#include <CoreServices/CoreServices.h>

#include "Desktop.h"

typedef OSStatus (*AudioDevicePropertyListenerProc)(AudioDeviceID device, UInt32 channel,
                                                    Boolean isInput, AudioDevicePropertyID id,
                                                    void* data);

static inline AudioObjectPropertyAddress formerAddress(AudioDevicePropertyID id, Boolean isInput) {
    const AudioObjectPropertyAddress address = {
        id, isInput ? kAudioObjectPropertyScopeInput : kAudioObjectPropertyScopeOutput, 0};
    return address;
}
static inline OSStatus AudioDeviceGetProperty(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                              AudioDevicePropertyID id, UInt32* size, void* data) {
    const AudioObjectPropertyAddress address = formerAddress(id, isInput);
    (void)channel;
    return AudioObjectGetPropertyData(device, &address, 0, NULL, size, data);
}
static inline OSStatus AudioDeviceGetPropertyInfo(AudioDeviceID device, UInt32 channel,
                                                  Boolean isInput, AudioDevicePropertyID id,
                                                  UInt32* size, Boolean* writable) {
    const AudioObjectPropertyAddress address = formerAddress(id, isInput);
    (void)channel, (void)writable;
    return AudioObjectGetPropertyDataSize(device, &address, 0, NULL, size);
}
static inline OSStatus AudioDeviceSetProperty(AudioDeviceID device, const AudioTimeStamp* when,
                                              UInt32 channel, Boolean isInput,
                                              AudioDevicePropertyID id, UInt32 size,
                                              const void* data) {
    const AudioObjectPropertyAddress address = formerAddress(id, isInput);
    (void)when, (void)channel;
    return AudioObjectSetPropertyData(device, &address, 0, NULL, size, data);
}
static inline OSStatus AudioStreamGetProperty(AudioStreamID stream, UInt32 channel,
                                              AudioDevicePropertyID id, UInt32* size, void* data) {
    return AudioDeviceGetProperty(stream, channel, 0, id, size, data);
}
static inline OSStatus AudioHardwareGetPropertyInfo(AudioDevicePropertyID id, UInt32* size,
                                                    Boolean* writable) {
    return AudioDeviceGetPropertyInfo(kAudioObjectSystemObject, 0, 0, id, size, writable);
}
static inline OSStatus AudioHardwareGetProperty(AudioDevicePropertyID id, UInt32* size,
                                                void* data) {
    return AudioDeviceGetProperty(kAudioObjectSystemObject, 0, 0, id, size, data);
}
static inline OSStatus AudioDeviceAddPropertyListener(AudioDeviceID device, UInt32 channel,
                                                      Boolean isInput, AudioDevicePropertyID id,
                                                      AudioDevicePropertyListenerProc listener,
                                                      void* data) {
    (void)device, (void)channel, (void)isInput, (void)id, (void)listener, (void)data;
    return noErr;
}
static inline OSStatus AudioDeviceRemovePropertyListener(AudioDeviceID device, UInt32 channel,
                                                         Boolean isInput, AudioDevicePropertyID id,
                                                         AudioDevicePropertyListenerProc listener) {
    (void)device, (void)channel, (void)isInput, (void)id, (void)listener;
    return noErr;
}
static inline OSStatus AudioDeviceGetCurrentTime(AudioDeviceID device, AudioTimeStamp* time) {
    (void)device;
    time->mHostTime = mach_absolute_time();
    return noErr;
}

/* Names of channels are not asked for here. */
enum {
    kAudioDevicePropertyChannelName = 0x63686E6D,
    kAudioDevicePropertyChannelNameCFString = 0x6C63686E
};
#define CFSTR(text) NULL
#define CFStringCreateWithFormat(...) NULL
enum { kAudioDevicePropertyStreamFormatSupported = 0x73666D3F };

/* For input, of which there is none. */
#define AudioConverterFillBuffer(...) kAudio_UnimplementedError

enum { gestaltSystemVersionMajor, gestaltSystemVersionMinor };
static inline OSErr Gestalt(int which, SInt32* answer) {
    *answer = which == gestaltSystemVersionMajor ? 10 : 15;
    return noErr;
}
