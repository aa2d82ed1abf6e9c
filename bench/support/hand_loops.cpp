#include "hand_loops.h"

#include <cmath>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace hand {

#if defined(__x86_64__)

bool hasAvx2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

[[gnu::target("avx2")]] void convertAvx2(const float* source, std::int16_t* target,
                                         std::size_t count) {
    const __m256 scale = _mm256_set1_ps(32767.0F);
    const __m256 low = _mm256_set1_ps(-32767.0F);
    for (std::size_t i = 0; i < count; i += 16) {
        const __m256 a = _mm256_mul_ps(_mm256_loadu_ps(source + i), scale);
        const __m256 b = _mm256_mul_ps(_mm256_loadu_ps(source + i + 8), scale);
        const __m256i c = _mm256_cvttps_epi32(_mm256_max_ps(_mm256_min_ps(a, scale), low));
        const __m256i d = _mm256_cvttps_epi32(_mm256_max_ps(_mm256_min_ps(b, scale), low));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + i),
                            _mm256_permute4x64_epi64(_mm256_packs_epi32(c, d), 0xD8));
    }
}

void convertBaseline(const float* source, std::int16_t* target, std::size_t count) {
    const __m128 scale = _mm_set1_ps(32767.0F);
    const __m128 low = _mm_set1_ps(-32767.0F);
    for (std::size_t i = 0; i < count; i += 8) {
        const __m128 a = _mm_mul_ps(_mm_loadu_ps(source + i), scale);
        const __m128 b = _mm_mul_ps(_mm_loadu_ps(source + i + 4), scale);
        const __m128i c = _mm_cvttps_epi32(_mm_max_ps(_mm_min_ps(a, scale), low));
        const __m128i d = _mm_cvttps_epi32(_mm_max_ps(_mm_min_ps(b, scale), low));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i), _mm_packs_epi32(c, d));
    }
}

[[gnu::target("avx2")]] void scaleAvx2(const float* source, float* target, std::size_t count,
                                       float gain) {
    const __m256 factor = _mm256_set1_ps(gain);
    for (std::size_t i = 0; i < count; i += 16) {
        const __m256 a = _mm256_mul_ps(factor, _mm256_loadu_ps(source + i));
        const __m256 b = _mm256_mul_ps(factor, _mm256_loadu_ps(source + i + 8));
        _mm256_storeu_ps(target + i, a);
        _mm256_storeu_ps(target + i + 8, b);
    }
}

[[gnu::target("avx2")]] void scaleAvx2(const std::int16_t* source, std::int16_t* target,
                                       std::size_t count, float gain) {
    const __m256 factor = _mm256_set1_ps(gain);
    const auto scaled = [&](std::size_t i) __attribute__((target("avx2"))) {
        const __m256i words =
            _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i)));
        return _mm256_cvttps_epi32(_mm256_mul_ps(factor, _mm256_cvtepi32_ps(words)));
    };
    for (std::size_t i = 0; i < count; i += 16) {
        const __m256i packed = _mm256_packs_epi32(scaled(i), scaled(i + 8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + i),
                            _mm256_permute4x64_epi64(packed, 0xD8));
    }
}

[[gnu::target("fma")]] float smootherChain(float current, float target, float coefficient,
                                           std::size_t frames) {
    for (std::size_t i = 0; i < frames; ++i) {
        current = std::fma(coefficient, current - target, target);
    }
    return current;
}

#else

bool hasAvx2() {
    return false;
}

void convertAvx2(const float*, std::int16_t*, std::size_t) {
}

void convertBaseline(const float* source, std::int16_t* target, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const float scaled = source[i] * 32767.0F;
        target[i] = static_cast<std::int16_t>(std::fmin(std::fmax(scaled, -32767.0F), 32767.0F));
    }
}

void scaleAvx2(const float*, float*, std::size_t, float) {
}

void scaleAvx2(const std::int16_t*, std::int16_t*, std::size_t, float) {
}

float smootherChain(float current, float target, float coefficient, std::size_t frames) {
    for (std::size_t i = 0; i < frames; ++i) {
        current = std::fma(coefficient, current - target, target);
    }
    return current;
}

#endif

}  // namespace hand
