#include "gain_block.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <type_traits>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace korva_audio_utils {

namespace {

// Everything that a kernel is made of is forced inline, to be compiled for that kernel's
// instructions. Samples are moved as bytes: a host's buffer need not be aligned to them.

[[gnu::always_inline]] inline std::int32_t TruncateSaturated(float value) {
    if (!(value > -2147483648.0F)) {
        return std::isnan(value) ? 0 : std::numeric_limits<std::int32_t>::min();
    }
    if (value >= 2147483648.0F) {
        return std::numeric_limits<std::int32_t>::max();
    }
    return static_cast<std::int32_t>(value);
}

/// A gain is between 0 and 1, so that only a 32-bit sample can leave the range of its type.
template <typename Sample>
[[gnu::always_inline]] inline Sample SampleFromFloat(float value) {
    if constexpr (std::is_same_v<Sample, float>) {
        return value;
    } else if constexpr (std::is_same_v<Sample, std::int16_t>) {
        return static_cast<Sample>(static_cast<std::int32_t>(value));
    } else {
        return TruncateSaturated(value);
    }
}

template <typename Sample>
[[gnu::always_inline]] inline float Load(const char* source) {
    Sample sample;
    std::memcpy(&sample, source, sizeof sample);
    return static_cast<float>(sample);
}

template <typename Sample>
[[gnu::always_inline]] inline void ScaleFrame(const char* source, char* target,
                                              std::size_t channels, float gain) {
    for (std::size_t channel = 0; channel < channels; ++channel) {
        const auto scaled = SampleFromFloat<Sample>(gain * Load<Sample>(source));
        std::memcpy(target, &scaled, sizeof scaled);
        source += sizeof(Sample);
        target += sizeof(Sample);
    }
}

/// One pole, over a stretch of frames in which neither target nor coefficient changes.
struct Smoother {
    float current = 1.0F;
    float target = 1.0F;
    float coefficient = 0.0F;

    [[gnu::always_inline]] float Next() const {
        return std::fma(coefficient, current - target, target);
    }
    /// The next step gives the same bits: the value has come to rest, usually just short of the
    /// target.
    [[gnu::always_inline]] bool IsSettled() const {
        return std::bit_cast<std::uint32_t>(Next()) == std::bit_cast<std::uint32_t>(current);
    }
};

/// A changing gain. Each frame's gain needs the one before: a subtraction and a fused multiply-add,
/// and nothing else is on that chain.
template <typename Sample>
[[gnu::always_inline]] inline void ScaleRamp(Smoother& ducking, Smoother& compressor,
                                             const char* source, char* target, std::size_t channels,
                                             std::size_t frames) {
    Smoother a = ducking;
    Smoother b = compressor;
    const auto run = [&](const std::size_t width) __attribute__((always_inline)) {
        for (std::size_t frame = 0; frame < frames; ++frame) {
            a.current = a.Next();
            b.current = b.Next();
            const float gain = b.current < a.current ? b.current : a.current;
            ScaleFrame<Sample>(source, target, width, gain);
            source += width * sizeof(Sample);
            target += width * sizeof(Sample);
        }
    };
    if (channels == 2) {
        run(2);
    } else if (channels == 1) {
        run(1);
    } else {
        run(channels);
    }
    ducking = a;
    compressor = b;
}

/// A steady gain, on whole vectors. Returns how many samples they covered.
struct PortableVectors {
    template <typename Sample>
    [[gnu::always_inline]] static std::size_t Scale(const char* source, char* target,
                                                    std::size_t samples, float gain) {
        constexpr std::size_t kLanes = 8;
        using Floats [[gnu::vector_size(kLanes * sizeof(float))]] = float;
        using Words [[gnu::vector_size(kLanes * sizeof(std::int32_t))]] = std::int32_t;
        using Samples [[gnu::vector_size(kLanes * sizeof(Sample))]] = Sample;
        std::size_t done = 0;
        for (; done + kLanes <= samples; done += kLanes) {
            Samples block;
            std::memcpy(&block, source + done * sizeof(Sample), sizeof block);
            if constexpr (std::is_same_v<Sample, float>) {
                block = gain * block;
            } else {
                const Floats scaled =
                    gain * __builtin_convertvector(__builtin_convertvector(block, Words), Floats);
                block = __builtin_convertvector(__builtin_convertvector(scaled, Words), Samples);
            }
            std::memcpy(target + done * sizeof(Sample), &block, sizeof block);
        }
        return done;
    }
};

#if defined(__x86_64__)
/// The same with AVX2. It names its target itself: the function that calls it has none until that
/// is inlined into a kernel.
struct Avx2Vectors {
    template <typename Sample>
    [[gnu::target("avx2,fma")]] static std::size_t Scale(const char* source, char* target,
                                                         std::size_t samples, float gain) {
        constexpr std::size_t kStep = 32;
        constexpr bool kIsFloat = std::is_same_v<Sample, float>;
        const __m256 factor = _mm256_set1_ps(kIsFloat ? gain : gain * 0x1p-16F);
        std::size_t done = 0;
        for (; done + kStep <= samples; done += kStep) {
            if constexpr (kIsFloat) {
                const auto* const from = reinterpret_cast<const float*>(source) + done;
                auto* const to = reinterpret_cast<float*>(target) + done;
                const __m256 a = _mm256_mul_ps(factor, _mm256_loadu_ps(from));
                const __m256 b = _mm256_mul_ps(factor, _mm256_loadu_ps(from + 8));
                const __m256 c = _mm256_mul_ps(factor, _mm256_loadu_ps(from + 16));
                const __m256 d = _mm256_mul_ps(factor, _mm256_loadu_ps(from + 24));
                _mm256_storeu_ps(to, a);
                _mm256_storeu_ps(to + 8, b);
                _mm256_storeu_ps(to + 16, c);
                _mm256_storeu_ps(to + 24, d);
            } else {
                ScaleWords(factor, source + done * sizeof(Sample), target + done * sizeof(Sample));
                ScaleWords(factor, source + (done + 16) * sizeof(Sample),
                           target + (done + 16) * sizeof(Sample));
            }
        }
        return done;
    }

  private:
    /// 16 samples. Each is widened into the upper half of a word, which is a multiplication by
    /// 65536 that `factor` takes back; a product too small for that would be cut to 0 anyway.
    /// Unpacking and packing both work on each half of a vector by itself, so the order stays.
    [[gnu::always_inline, gnu::target("avx2,fma")]] static void ScaleWords(const __m256& factor,
                                                                           const char* source,
                                                                           char* target) {
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source));
        const __m256i zero = _mm256_setzero_si256();
        const __m256 low = _mm256_cvtepi32_ps(_mm256_unpacklo_epi16(zero, block));
        const __m256 high = _mm256_cvtepi32_ps(_mm256_unpackhi_epi16(zero, block));
        const __m256i scaled = _mm256_packs_epi32(_mm256_cvttps_epi32(_mm256_mul_ps(factor, low)),
                                                  _mm256_cvttps_epi32(_mm256_mul_ps(factor, high)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target), scaled);
    }
};
#endif

template <class Vectors, typename Sample>
[[gnu::always_inline]] inline void ScaleSteady(const char* source, char* target,
                                               std::size_t samples, float gain) {
    std::size_t done = 0;
    if constexpr (!std::is_same_v<Sample, std::int32_t>) {
        done = Vectors::template Scale<Sample>(source, target, samples, gain);
    }
    ScaleFrame<Sample>(source + done * sizeof(Sample), target + done * sizeof(Sample),
                       samples - done, gain);
}

bool IsUnit(float value) {
    return value >= 0.0F && value <= 1.0F;
}

/// Whether the fast path gives what the reference path gives. With every value between 0 and 1 all
/// gains are too, and a smoother never crosses its target, so that the choice between attack and
/// release changes only with the target.
bool IsFastPathExact(const GainBlock& block, float coefficient) {
    const bool isDuckingExact =
        !block.ducking ||
        (IsUnit(coefficient) && IsUnit(block.duckingTarget) && IsUnit(block.duckingCurrent));
    const bool isCompressorExact =
        !block.compressor ||
        (IsUnit(block.compressorAttackCoefficient) && IsUnit(block.compressorReleaseCoefficient) &&
         IsUnit(block.compressorTarget) && IsUnit(block.compressorCurrent) &&
         block.compressorThreshold >= 0.0F);
    return isDuckingExact && isCompressorExact;
}

/// The fast path: stretch by stretch, from one evaluation of the compressor to the next.
template <class Vectors, typename Sample>
[[gnu::always_inline]] inline void RunFastPath(GainBlock& block, const char* source, char* target,
                                               std::size_t channels, std::size_t frames,
                                               float coefficient) {
    GainBlock state = block;
    const std::size_t stride = channels * sizeof(Sample);
    Smoother ducking;
    if (state.ducking) {
        ducking = {state.duckingCurrent, state.duckingTarget, coefficient};
    }
    while (frames > 0) {
        Smoother compressor;
        std::size_t run = frames;
        if (state.compressor) {
            if (state.untilUpdate == 0) {
                state.compressorTarget = state.CompressorTarget(Load<Sample>(source));
                state.untilUpdate = state.updatePeriod;
            }
            run = std::min(run, state.untilUpdate);
            compressor = {state.compressorCurrent, state.compressorTarget,
                          state.CompressorCoefficient()};
        }
        if (ducking.IsSettled() && compressor.IsSettled()) {
            // Evaluations that come to the same target change nothing and need no stretch of their
            // own.
            if (run < frames) {
                std::size_t next = run;
                while (next < frames && state.CompressorTarget(Load<Sample>(
                                            source + next * stride)) == compressor.target) {
                    next += state.updatePeriod;
                }
                state.untilUpdate = next;
                run = std::min(frames, next);
            }
            ScaleSteady<Vectors, Sample>(
                source, target, run * channels,
                compressor.current < ducking.current ? compressor.current : ducking.current);
        } else {
            ScaleRamp<Sample>(ducking, compressor, source, target, channels, run);
        }
        if (state.compressor) {
            state.compressorCurrent = compressor.current;
            state.untilUpdate -= run;
            state.sampleCounter += run;
        }
        frames -= run;
        source += run * stride;
        target += run * stride;
    }
    state.duckingCurrent = ducking.current;
    block = state;
}

/// The reference path: frame by frame, for any parameters.
template <typename Sample>
void RunReferencePath(GainBlock& block, const char* source, char* target, std::size_t channels,
                      std::size_t frames, float coefficient) {
    const std::size_t stride = channels * sizeof(Sample);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const float gain = block.SampleGain(Load<Sample>(source), coefficient);
        ScaleFrame<Sample>(source, target, channels, gain);
        source += stride;
        target += stride;
    }
}

template <typename Sample>
void RunPortable(GainBlock& block, const char* source, char* target, std::size_t channels,
                 std::size_t frames, float coefficient) {
    RunFastPath<PortableVectors, Sample>(block, source, target, channels, frames, coefficient);
}

#if defined(__x86_64__)
template <typename Sample>
[[gnu::target("avx2,fma")]] void RunFused(GainBlock& block, const char* source, char* target,
                                          std::size_t channels, std::size_t frames,
                                          float coefficient) {
    RunFastPath<Avx2Vectors, Sample>(block, source, target, channels, frames, coefficient);
}
#endif

}  // namespace

float GainBlock::DecideDucking(std::int64_t frames) {
    duckingTarget = 1.0F;
    if (duckingVolume > duckingThreshold) {
        holdCounter = 0;
        duckingTarget = duckingGain;
        return duckingAttackCoefficient;
    }
    if (holdSamples > static_cast<float>(holdCounter)) {
        // Saturates: an endless hold must not overflow the counter.
        holdCounter = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(holdCounter + frames, std::numeric_limits<std::int32_t>::min(),
                                     std::numeric_limits<std::int32_t>::max()));
        duckingTarget = duckingGain;
        return duckingAttackCoefficient;
    }
    return duckingReleaseCoefficient;
}

template <typename Sample>
void RunGain(GainBlock& block, const Sample* in, Sample* out, std::size_t channels,
             std::size_t frames, float coefficient) noexcept {
    if (frames == 0) {
        return;
    }
    const auto* const source = reinterpret_cast<const char*>(in);
    auto* const target = reinterpret_cast<char*>(out);
    if (!IsFastPathExact(block, coefficient)) {
        RunReferencePath<Sample>(block, source, target, channels, frames, coefficient);
        return;
    }
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        RunFused<Sample>(block, source, target, channels, frames, coefficient);
        return;
    }
#endif
    RunPortable<Sample>(block, source, target, channels, frames, coefficient);
}

template void RunGain<std::int16_t>(GainBlock&, const std::int16_t*, std::int16_t*, std::size_t,
                                    std::size_t, float) noexcept;
template void RunGain<std::int32_t>(GainBlock&, const std::int32_t*, std::int32_t*, std::size_t,
                                    std::size_t, float) noexcept;
template void RunGain<float>(GainBlock&, const float*, float*, std::size_t, std::size_t,
                             float) noexcept;

}  // namespace korva_audio_utils
