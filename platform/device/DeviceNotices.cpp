#include "device/DeviceNotices.h"

#include <exception>
#include <utility>

namespace tqplatform {

namespace {

void tell(const char* name, NSUserInfo info) noexcept {
    try {
        NSNotificationCenter::defaultCenter().postNotificationName(name, nullptr, std::move(info));
    } catch (const std::exception&) {
        // No memory for a notice: the sound itself goes on.
    }
}

}  // namespace

void tellRouteChange(AVAudioSessionRouteChangeReason reason) noexcept {
    tell(AVAudioSessionRouteChangeNotification,
         {{AVAudioSessionRouteChangeReasonKey, long{reason}}});
}

void tellInterruptionBegan(AVAudioSessionInterruptionReason reason) noexcept {
    tell(AVAudioSessionInterruptionNotification,
         {{AVAudioSessionInterruptionTypeKey, long{AVAudioSessionInterruptionTypeBegan}},
          {AVAudioSessionInterruptionReasonKey, long{reason}}});
}

void tellInterruptionEnded() noexcept {
    tell(AVAudioSessionInterruptionNotification,
         {{AVAudioSessionInterruptionTypeKey, long{AVAudioSessionInterruptionTypeEnded}},
          {AVAudioSessionInterruptionOptionKey,
           long{AVAudioSessionInterruptionOptionShouldResume}}});
}

}  // namespace tqplatform
