#pragma once

#include <AVFoundation/AVFoundation.h>

// What programs are told when the system changes what they play on. Sent on the caller's thread
// with no lock held; handlers may call everything. [host thread]

namespace tqplatform {

void tellRouteChange(AVAudioSessionRouteChangeReason reason) noexcept;
void tellInterruptionBegan(AVAudioSessionInterruptionReason reason) noexcept;
/// Units play again by themselves, which the notice says, too.
void tellInterruptionEnded() noexcept;

}  // namespace tqplatform
