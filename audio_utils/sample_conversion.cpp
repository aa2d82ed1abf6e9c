#include "sample_conversion.h"

#include <algorithm>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace korva_audio_utils {

namespace {

constexpr float kScale = 32767.0F;

#if defined(__x86_64__)

// The vector conversion gives the smallest integer for a value out of range, and packing saturates;
// that leaves -32768 to become -32767. This is right as long as no product is beyond 2^31 or not a
// number. Those, and a sample too loud by exactly one step, give a half word of -32768 before
// packing; then the samples around it are converted again, one by one.

/// Samples between two checks for such half words, in whole vectors of `step`.
std::size_t NextChunk(std::size_t left, std::size_t step) {
    constexpr std::size_t kChunk = 128;
    return std::min(left, kChunk) / step * step;
}

/// With the limit as their first operand, min and max hand not-a-number through; it is packed to
/// -32768, which no other sample becomes.
void ConvertCarefully(const float* source, std::int16_t* target, std::size_t count) {
    const __m128 high = _mm_set1_ps(kScale);
    const __m128 low = _mm_set1_ps(-kScale);
    for (std::size_t i = 0; i < count; i += 8) {
        const __m128 a = _mm_mul_ps(_mm_loadu_ps(source + i), high);
        const __m128 b = _mm_mul_ps(_mm_loadu_ps(source + i + 4), high);
        const __m128i wideA = _mm_cvttps_epi32(_mm_max_ps(low, _mm_min_ps(high, a)));
        const __m128i wideB = _mm_cvttps_epi32(_mm_max_ps(low, _mm_min_ps(high, b)));
        const __m128i packed = _mm_packs_epi32(wideA, wideB);
        const __m128i isUnordered = _mm_cmpeq_epi16(packed, _mm_set1_epi16(-32768));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i),
                         _mm_andnot_si128(isUnordered, packed));
    }
}

std::size_t ConvertBaseline(const float* source, std::int16_t* target, std::size_t count) {
    const __m128 scale = _mm_set1_ps(kScale);
    const __m128i low = _mm_set1_epi16(-32767);
    std::size_t done = 0;
    while (const std::size_t chunk = NextChunk(count - done, 8)) {
        __m128i least = _mm_setzero_si128();
        for (std::size_t i = done; i < done + chunk; i += 8) {
            const __m128i a = _mm_cvttps_epi32(_mm_mul_ps(_mm_loadu_ps(source + i), scale));
            const __m128i b = _mm_cvttps_epi32(_mm_mul_ps(_mm_loadu_ps(source + i + 4), scale));
            least = _mm_min_epi16(least, _mm_min_epi16(a, b));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i),
                             _mm_max_epi16(_mm_packs_epi32(a, b), low));
        }
        if (_mm_movemask_epi8(_mm_cmpgt_epi16(low, least)) != 0) {
            ConvertCarefully(source + done, target + done, chunk);
        }
        done += chunk;
    }
    return done;
}

[[gnu::target("avx2")]] std::size_t ConvertAvx2(const float* source, std::int16_t* target,
                                                std::size_t count) {
    const __m256 scale = _mm256_set1_ps(kScale);
    const __m256i low = _mm256_set1_epi16(-32767);
    std::size_t done = 0;
    while (const std::size_t chunk = NextChunk(count - done, 16)) {
        __m256i least = _mm256_setzero_si256();
        for (std::size_t i = done; i < done + chunk; i += 16) {
            const __m256i a =
                _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_loadu_ps(source + i), scale));
            const __m256i b =
                _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_loadu_ps(source + i + 8), scale));
            least = _mm256_min_epi16(least, _mm256_min_epi16(a, b));
            // Packing works on each half by itself; the quarters go back to their places.
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + i),
                                _mm256_max_epi16(packed, low));
        }
        if (_mm256_movemask_epi8(_mm256_cmpgt_epi16(low, least)) != 0) {
            ConvertCarefully(source + done, target + done, chunk);
        }
        done += chunk;
    }
    return done;
}

std::size_t ConvertBest(const float* source, std::int16_t* target, std::size_t count) {
    return __builtin_cpu_supports("avx2") ? ConvertAvx2(source, target, count)
                                          : ConvertBaseline(source, target, count);
}

#elif defined(__aarch64__)

/// The conversion itself truncates, saturates and makes 0 of not-a-number.
std::size_t ConvertBaseline(const float* source, std::int16_t* target, std::size_t count) {
    const int32x4_t high = vdupq_n_s32(32767);
    const int32x4_t low = vdupq_n_s32(-32767);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const int32x4_t a = vcvtq_s32_f32(vmulq_n_f32(vld1q_f32(source + i), kScale));
        const int32x4_t b = vcvtq_s32_f32(vmulq_n_f32(vld1q_f32(source + i + 4), kScale));
        const int16x4_t narrowA = vmovn_s32(vmaxq_s32(low, vminq_s32(high, a)));
        const int16x4_t narrowB = vmovn_s32(vmaxq_s32(low, vminq_s32(high, b)));
        vst1q_s16(target + i, vcombine_s16(narrowA, narrowB));
    }
    return i;
}

#else

std::size_t ConvertBaseline(const float*, std::int16_t*, std::size_t) {
    return 0;
}

#endif

#if !defined(__x86_64__)
std::size_t ConvertBest(const float* source, std::int16_t* target, std::size_t count) {
    return ConvertBaseline(source, target, count);
}
#endif

}  // namespace

void ConvertFloatToInt16Portable(const float* source, std::int16_t* target,
                                 std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        // Limiting the float saturates exactly as limiting the truncated integer would: both limits
        // are whole numbers.
        float v = source[i] * kScale;
        v = v < kScale ? v : (v >= kScale ? kScale : 0.0F);
        v = v > -kScale ? v : -kScale;
        target[i] = static_cast<std::int16_t>(static_cast<std::int32_t>(v));
    }
}

void ConvertFloatToInt16Baseline(const float* source, std::int16_t* target,
                                 std::size_t count) noexcept {
    const std::size_t done = ConvertBaseline(source, target, count);
    ConvertFloatToInt16Portable(source + done, target + done, count - done);
}

void ConvertFloatToInt16(const float* source, std::int16_t* target, std::size_t count) noexcept {
    const std::size_t done = ConvertBest(source, target, count);
    ConvertFloatToInt16Portable(source + done, target + done, count - done);
}

}  // namespace korva_audio_utils
