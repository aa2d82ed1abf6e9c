#pragma once

namespace tqcommon {

/// How much later than it is heard the sound of native interfaces is played to the recording, in
/// seconds. Of sound that is heard a moment after it is written not all is there earlier: 20 ms are
/// for blocks that are asked for ahead, the rest for programs and devices that are late.
inline constexpr double kNativeSoundLaterSeconds = 0.08;

}  // namespace tqcommon
