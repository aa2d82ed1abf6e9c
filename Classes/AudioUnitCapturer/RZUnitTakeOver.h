#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <memory>

#include "RZHostCallbacks.h"
#include "RZReplayAudioUnitObject.h"

// One rule: whoever takes a capture object away, or cannot make one, sees to it that the unit plays
// the host's own callback. It is put back where that touches nothing else; where ours stays, it
// calls what RZHostCallbacks knows.

/// [any thread] The unit is alive and of the output type.
[[nodiscard]] bool RZIsOutputUnit(AudioUnit unit);

/// [host thread] One call of the host that sets a render callback in whose place ours is to go.
class RZUnitTakeOver {
  public:
    /// Before the platform's call. Throws without memory: then nothing has changed and the host's
    /// callback goes in as it is.
    void begin(const std::shared_ptr<RZReplayAudioUnitObject>& obj, AudioUnitScope scope,
               const AURenderCallbackStruct& callback);
    /// Behind it. What the platform refused leaves no trace.
    void end(OSStatus status);

  private:
    std::shared_ptr<RZReplayAudioUnitObject> obj_;
    AURenderCallbackStruct before_{};
    AURenderCallbackStruct unitsBefore_{};
    RZHostCallback noted_;
};

/// [host thread] A call that the platform has carried out as the host made it: where it gave the
/// unit's bus 0 another source, ours is not there any more.
void RZNoteUnitSource(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                      AudioUnitElement element, const void* data);

/// [host thread] The object joins a unit whose callback is known: ours goes in its place, now.
void RZTakeOverUnit(const std::shared_ptr<RZReplayAudioUnitObject>& obj);

/// [host thread] The unit's capture object is about to go.
void RZGiveBackUnit(AudioUnit unit);
