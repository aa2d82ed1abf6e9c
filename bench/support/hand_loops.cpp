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

float smootherChain(float current, float target, float coefficient, std::size_t frames) {
    for (std::size_t i = 0; i < frames; ++i) {
        current = std::fma(coefficient, current - target, target);
    }
    return current;
}

#endif

}  // namespace hand
