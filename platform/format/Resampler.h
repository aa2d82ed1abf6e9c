#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <cstdint>
#include <memory>

#include "format/RateRatio.h"

struct SwrContext;

namespace tqplatform {

/// Ratios with up to this many phases get a filter for each; the resampler interpolates between
/// this many filters for all others.
inline constexpr std::int64_t kFilterPhases = 1024;

struct FreeResampler {
    void operator()(SwrContext* context) const noexcept;
};
using Resampler = std::unique_ptr<SwrContext, FreeResampler>;

/// [host thread] Of float planes. Takes milliseconds. Throws std::bad_alloc, or std::runtime_error
/// for rates that are too far apart or that the library refuses.
Resampler makeResampler(RateRatio ratio, UInt32 channels);

}  // namespace tqplatform
