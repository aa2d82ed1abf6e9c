#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <string>

/// [any thread] The folder of the crash guard's flag files, whether or not it is there.
[[nodiscard]] std::string RZReplayAudioUnitCapture_hookConfigFolder();

/// [host thread] Prepares the folder of the crash guard's flag files, routes the utility layer's
/// log into the sink and initialises the hook configuration store. 0 done (also when it was done
/// before), else a code of TQAudioRecordHookConfig. Runs while the library loads.
int RZReplayAudioUnitCapture_initHookConfig();

/// [render thread] Stands in for a host's render callback: calls the host's own, then records the
/// block before and after ducking and compression, which change what the device plays, or silence
/// where the device plays that because the host's callback failed. `refCon` is the
/// intercepted unit, or the host's graph for a graph node. Returns the host's own status. Allocates
/// only when a block is larger than all before it. Takes the registry's lock for the look-up and
/// the object's bufferLock for each buffer.
OSStatus RZReplayAudioUnitCapture_InputProcessCallback(void* refCon,
                                                       AudioUnitRenderActionFlags* flags,
                                                       const AudioTimeStamp* ts, UInt32 bus,
                                                       UInt32 frames, AudioBufferList* ioData);
