#include "sample_conversion.h"

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace korva_audio_utils {

namespace {

constexpr float kScale = 32767.0F;

#if defined(__x86_64__)

// With the limit as its first operand, min and max hand not-a-number through; it is converted to
// the smallest integer, which packing saturates to -32768. No other sample becomes that, so it is
// how not-a-number is told from the rest, at half the cost of asking every float.

std::size_t ConvertSse2(const float* source, std::int16_t* target, std::size_t count) {
    const __m128 high = _mm_set1_ps(kScale);
    const __m128 low = _mm_set1_ps(-kScale);
    const __m128i unordered = _mm_set1_epi16(-32768);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128 a = _mm_mul_ps(_mm_loadu_ps(source + i), high);
        const __m128 b = _mm_mul_ps(_mm_loadu_ps(source + i + 4), high);
        const __m128i wideA = _mm_cvttps_epi32(_mm_max_ps(low, _mm_min_ps(high, a)));
        const __m128i wideB = _mm_cvttps_epi32(_mm_max_ps(low, _mm_min_ps(high, b)));
        const __m128i packed = _mm_packs_epi32(wideA, wideB);
        const __m128i isUnordered = _mm_cmpeq_epi16(packed, unordered);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i),
                         _mm_andnot_si128(isUnordered, packed));
    }
    return i;
}

[[gnu::target("avx2")]] std::size_t ConvertAvx2(const float* source, std::int16_t* target,
                                                std::size_t count) {
    const __m256 high = _mm256_set1_ps(kScale);
    const __m256 low = _mm256_set1_ps(-kScale);
    const __m256i unordered = _mm256_set1_epi16(-32768);
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256 a = _mm256_mul_ps(_mm256_loadu_ps(source + i), high);
        const __m256 b = _mm256_mul_ps(_mm256_loadu_ps(source + i + 8), high);
        const __m256i wideA = _mm256_cvttps_epi32(_mm256_max_ps(low, _mm256_min_ps(high, a)));
        const __m256i wideB = _mm256_cvttps_epi32(_mm256_max_ps(low, _mm256_min_ps(high, b)));
        const __m256i packed = _mm256_packs_epi32(wideA, wideB);
        const __m256i isUnordered = _mm256_cmpeq_epi16(packed, unordered);
        // Packing works on each half by itself; the quarters go back to their places.
        const __m256i ordered =
            _mm256_permute4x64_epi64(_mm256_andnot_si256(isUnordered, packed), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + i), ordered);
    }
    return i;
}

std::size_t ConvertVectors(const float* source, std::int16_t* target, std::size_t count) {
    return __builtin_cpu_supports("avx2") ? ConvertAvx2(source, target, count)
                                          : ConvertSse2(source, target, count);
}

#elif defined(__aarch64__)

/// The conversion itself truncates, saturates and makes 0 of not-a-number.
std::size_t ConvertVectors(const float* source, std::int16_t* target, std::size_t count) {
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

std::size_t ConvertVectors(const float*, std::int16_t*, std::size_t) {
    return 0;
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

void ConvertFloatToInt16(const float* source, std::int16_t* target, std::size_t count) noexcept {
    const std::size_t done = ConvertVectors(source, target, count);
    ConvertFloatToInt16Portable(source + done, target + done, count - done);
}

}  // namespace korva_audio_utils
