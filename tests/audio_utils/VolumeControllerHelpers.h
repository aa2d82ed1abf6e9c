#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "volume_controller.h"

namespace korva_audio_utils {

using Format = VolumeControllerFormat;

inline constexpr float kInfinity = std::numeric_limits<float>::infinity();
inline constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
inline constexpr std::int32_t kNoHold = 1073741824;

template <typename Sample>
void ProcessInPlace(VolumeController& controller, std::vector<Sample>& samples,
                    std::size_t channels, Format format) {
    auto* const bytes = reinterpret_cast<char*>(samples.data());
    controller.Process(bytes, bytes, channels, samples.size() * sizeof(Sample), format);
}

inline void ProcessFloats(VolumeController& controller, std::vector<float>& samples,
                          std::size_t channels = 1) {
    ProcessInPlace(controller, samples, channels, Format::kFloat32);
}

inline void EnableDucking(VolumeController& controller,
                          VolumeController::DuckingParams params = {}) {
    params.enable = true;
    controller.SetDuckingParams(params);
    controller.init_params();
}

inline void EnableCompressor(VolumeController& controller,
                             VolumeController::CompressorParams params = {}) {
    params.enable = true;
    controller.SetCompressorParams(params);
    controller.init_params();
}

}  // namespace korva_audio_utils
