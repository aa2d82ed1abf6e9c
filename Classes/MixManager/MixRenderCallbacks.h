#pragma once

#include <AudioToolbox/AudioToolbox.h>

/// [render thread] Render notify of the private mixer: hands each mixed block to the manager's
/// callback, stamped with its host time, then silences it so that the private output plays nothing.
/// `refCon` is the mix manager. Always 0. Takes auGraphUpdateLock for the whole call.
OSStatus MixOutputRenderCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                                 const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                                 AudioBufferList* ioData);

/// [render thread] Render notify of a host's unit whose callback was not taken over: records the
/// block before and after ducking and compression, which change what the unit plays. `refCon` is
/// the unit. Always 0. Takes mapLock for the look-up, each buffer's lock, and allocates only for a
/// larger block.
OSStatus RenderNotifyCallback(void* refCon, AudioUnitRenderActionFlags* flags,
                              const AudioTimeStamp* ts, UInt32 bus, UInt32 frames,
                              AudioBufferList* ioData);
