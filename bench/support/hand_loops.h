#pragma once

#include <cstddef>
#include <cstdint>

/// Loops written by hand as the floor of what a piece of work can cost.
namespace hand {

/// Whether the machine has AVX2 and fused multiply-add; without them the loops must not be called.
bool hasAvx2();

/// To 16-bit: scaled, limited, truncated. Takes no care of what is not a number. `count` is a
/// multiple of 16.
void convertAvx2(const float* source, std::int16_t* target, std::size_t count);
/// The same with vectors of four floats, as every processor of the architecture has them.
void convertBaseline(const float* source, std::int16_t* target, std::size_t count);

/// Every sample times `gain`; 16-bit ones through float and truncated. `count` is a multiple of 16.
void scaleAvx2(const float* source, float* target, std::size_t count, float gain);
void scaleAvx2(const std::int16_t* source, std::int16_t* target, std::size_t count, float gain);

/// A one-pole smoother for `frames` frames, each step waiting for the one before: subtract, fuse.
/// No loop that computes a moving gain sample by sample can be faster. Answers the last value.
float smootherChain(float current, float target, float coefficient, std::size_t frames);

}  // namespace hand
