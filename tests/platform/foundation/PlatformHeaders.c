#include "PlatformHeaders.h"

#include <AudioToolbox/AudioSession.h>
#include <AudioToolbox/AudioToolbox.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreMedia/CoreMedia.h>
#include <mach/mach_time.h>
#include <string.h>

_Static_assert(sizeof(CMTime) == 24, "packed to four");
_Static_assert(_Alignof(CMTime) == 4, "packed to four");
_Static_assert(sizeof(CMSampleTimingInfo) == 72, "three times");
_Static_assert(sizeof(mach_timebase_info_data_t) == 8, "two words");
_Static_assert(sizeof(CMItemCount) == sizeof(long), "a long");
_Static_assert(sizeof(Boolean) == 1, "an unsigned char");
_Static_assert(kCMSampleBufferError_RequiredParameterMissing == -12731, "an int in C");
_Static_assert(kCMMediaType_Audio == 0x736F756E, "soun");
_Static_assert(kAudioSessionNotInitialized == 0x21696E69, "!ini");

static int checkStrings(void) {
    char text[8];
    CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, "text", kCFStringEncodingUTF8);
    if (string == NULL || CFStringGetLength(string) != 4) {
        return 1;
    }
    if (!CFStringGetCString(string, text, sizeof text, kCFStringEncodingUTF8) ||
        strcmp(text, "text") != 0) {
        return 2;
    }
    CFRelease(CFRetain(string));
    if (CFGetRetainCount(string) != 1) {
        return 3;
    }
    CFRelease(string);
    return 0;
}

static int checkSamples(void) {
    AudioStreamBasicDescription stream = {
        44100, kAudioFormatLinearPCM, kAudioFormatFlagIsSignedInteger, 4, 1, 4, 2, 16, 0};
    short data[4] = {1, 2, 3, 4};
    AudioBufferList list = {1, {{2, sizeof data, data}}};
    CMSampleTimingInfo timing = kCMTimingInfoInvalid;
    CMAudioFormatDescriptionRef format = NULL;
    CMSampleBufferRef samples = NULL;
    timing.duration = CMTimeMake(1, 44100);
    if (CMAudioFormatDescriptionCreate(kCFAllocatorDefault, &stream, 0, NULL, 0, NULL, NULL,
                                       &format) != noErr) {
        return 11;
    }
    if (CMSampleBufferCreate(kCFAllocatorDefault, NULL, FALSE, NULL, NULL, format, 2, 1, &timing, 0,
                             NULL, &samples) != noErr) {
        return 12;
    }
    if (CMSampleBufferSetDataBufferFromAudioBufferList(samples, kCFAllocatorDefault,
                                                       kCFAllocatorDefault, 0, &list) != noErr) {
        return 13;
    }
    if (CMBlockBufferGetDataLength(CMSampleBufferGetDataBuffer(samples)) != sizeof data ||
        CMSampleBufferGetDuration(samples).value != 2) {
        return 14;
    }
    CFRelease(samples);
    CFRelease(format);
    return 0;
}

static int checkSessionAndTime(void) {
    mach_timebase_info_data_t base;
    UInt32 size = sizeof(Float64);
    Float64 rate = 0;
    if (mach_timebase_info(&base) != KERN_SUCCESS || mach_absolute_time() == 0) {
        return 21;
    }
    if (AudioSessionInitialize(NULL, NULL, NULL, NULL) != kAudioSessionNoError ||
        AudioSessionGetProperty(kAudioSessionProperty_CurrentHardwareSampleRate, &size, &rate) !=
            kAudioSessionNoError ||
        rate <= 0) {
        return 22;
    }
    return 0;
}

int useTheHeadersFromC(void) {
    int failed = checkStrings();
    if (failed == 0) {
        failed = checkSamples();
    }
    if (failed == 0) {
        failed = checkSessionAndTime();
    }
    return failed;
}
