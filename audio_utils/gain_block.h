#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace korva_audio_utils {

/// What the volume controller works with while it processes one block: a copy of the parameters and
/// of the state, used by one thread. Levels in dB, gains linear, times in frames.
struct GainBlock {
    bool ducking;
    float duckingVolume;
    float duckingThreshold;
    float duckingAttackCoefficient;
    float duckingReleaseCoefficient;
    float holdSamples;
    float duckingGain;

    bool compressor;
    float compressorAttackCoefficient;
    float compressorReleaseCoefficient;
    float compressorThreshold;  ///< linear, tightened when the side chain says so
    float fullScale;
    float quietBelow;            ///< samples below are under the threshold for certain
    std::uint64_t updatePeriod;  ///< frames from one evaluation to the next, not 0
    std::uint64_t untilUpdate;   ///< frames until the next one

    std::int32_t holdCounter;
    float duckingTarget;
    float duckingCurrent;
    float compressorTarget;
    float compressorCurrent;
    std::uint64_t sampleCounter;

    std::uint32_t duckingResets;
    std::uint32_t compressorResets;

    /// Decides on ducking for a block of frames; returns the block's smoothing coefficient.
    float DecideDucking(std::int64_t frames);

    // The functions below are part of each kernel; forced inlining lets each be compiled for its
    // kernel's instructions.

    /// The compressor's target after an evaluation that hears `sample`.
    [[gnu::always_inline]] float CompressorTarget(float sample) const {
        /// 1 - 1/ratio.
        constexpr float kExponent = 0.8F;
        if (std::fabs(sample) < quietBelow) {
            return 1.0F;  // without a division
        }
        const float level = std::fabs(sample / fullScale);
        return level > compressorThreshold ? std::pow(compressorThreshold / level, kExponent)
                                           : 1.0F;
    }

    [[gnu::always_inline]] float CompressorCoefficient() const {
        return compressorCurrent < compressorTarget ? compressorReleaseCoefficient
                                                    : compressorAttackCoefficient;
    }

    /// Advances the compressor by one frame.
    [[gnu::always_inline]] float CompressorGain(float sample) {
        if (untilUpdate == 0) {
            compressorTarget = CompressorTarget(sample);
            untilUpdate = updatePeriod;
        }
        --untilUpdate;
        ++sampleCounter;
        compressorCurrent = std::fma(CompressorCoefficient(), compressorCurrent - compressorTarget,
                                     compressorTarget);
        return compressorCurrent;
    }

    /// The gain for one frame whose first sample is given.
    [[gnu::always_inline]] float SampleGain(float sample, float coefficient) {
        duckingCurrent =
            ducking ? std::fma(coefficient, duckingCurrent - duckingTarget, duckingTarget) : 1.0F;
        const float compressorGain = compressor ? CompressorGain(sample) : 1.0F;
        const float gain = compressorGain < duckingCurrent ? compressorGain : duckingCurrent;
        return gain >= 0.0F && gain <= 1.0F ? gain : 1.0F;
    }
};

/// [render thread] Real-time safe. Processes the frames of one block with the best kernel for the
/// machine. All give the same bits: std::fma rounds once everywhere, nothing else is fused, and
/// each shortcut is taken only where it leads to the same samples and the same state. For
/// std::int16_t, std::int32_t, float.
template <typename Sample>
void RunGain(GainBlock& block, const Sample* in, Sample* out, std::size_t channels,
             std::size_t frames, float coefficient) noexcept;

extern template void RunGain<std::int16_t>(GainBlock&, const std::int16_t*, std::int16_t*,
                                           std::size_t, std::size_t, float) noexcept;
extern template void RunGain<std::int32_t>(GainBlock&, const std::int32_t*, std::int32_t*,
                                           std::size_t, std::size_t, float) noexcept;
extern template void RunGain<float>(GainBlock&, const float*, float*, std::size_t, std::size_t,
                                    float) noexcept;

}  // namespace korva_audio_utils
