#pragma once

#include <AudioToolbox/AudioToolbox.h>

/// [render thread] Feeds one mixer input bus from its track: hands every complete post block to the
/// listeners, then gives the mixer the next pre block or silence. `refCon` is the host's unit; an
/// unknown one leaves `ioData` as it is. Always 0. Takes the manager's auGraphUpdateLock for the
/// whole call.
OSStatus UniversalNodeProcessCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                                      const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                                      AudioBufferList* ioData);
